/* Streams of the C runtime, for the functions that read and write them. */
%refuse_none(char *filename)
%refuse_none(char *mode)

%immutable;
FILE *stdout;
%mutable;

FILE *fopen(char *filename, char *mode);
int fclose(FILE *stream);
