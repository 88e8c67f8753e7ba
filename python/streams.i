/* Streams of the C runtime, for the functions that read and write them. */
%refuse_none(char *filename)
%refuse_none(char *mode)

%immutable;
FILE *stdout;
%mutable;

/** Opens a file.
 *
 * @param filename name of the file
 * @param mode "r" or "w", with "b" behind for binary files
 * @return the stream; None if the file cannot be opened */
FILE *fopen(char *filename, char *mode);

/** Closes a file.
 *
 * @param stream the stream
 * @return 0; another number if writing failed */
int fclose(FILE *stream);
