// The header serves C++ as well as C.
#include <kestrum.h>

#include <cstring>

int main() {
  VORL_GRID a;
  VORL_GRID b;
  VORLInitGrid(&a);
  VORLInitGrid(&b);
  b.sy = 1.0;
  const bool sound =
      VORLCmpGrid(&a, &b) == -5 && std::strcmp(VORLGetErrorMessage(1000), "ERROR 01000: aborted job\n") == 0;
  return sound ? 0 : 1;
}
