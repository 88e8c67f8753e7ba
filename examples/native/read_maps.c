/* Reads result files in GSLIB-style text and reports on each: its grid, its variables, their statistics.
 *
 *   read_maps FILE.gslib...
 */
#include <kestrum.h>
#include <stdio.h>

static int Report(const char* fileName) {
  VORL_IMAGE image;
  int status;
  FILE* stream = fopen(fileName, "r");
  if (!stream) {
    fprintf(stderr, "%s: can not be opened\n", fileName);
    return 1;
  }
  VORLInitImage(&image);
  status = VORLReadImage(&image, 0, stream);
  fclose(stream);
  if (status == 0) {
    printf("%s\n", fileName);
    status = VORLPrintImageInfo(&image, "  ", stdout, 0);
  }
  if (status != 0) fprintf(stderr, "%s: %s", fileName, VORLGetErrorMessage(-status));
  VORLFreeImage(&image);
  return status != 0;
}

int main(int argc, char** argv) {
  int failures = 0;
  int i;
  if (argc < 2) {
    fprintf(stderr, "usage: %s FILE.gslib...\n", argv[0]);
    return 2;
  }
  for (i = 1; i < argc; ++i) failures += Report(argv[i]);
  return failures > 0;
}
