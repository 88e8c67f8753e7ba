// The header serves C++ as well as C.
#include <core/types.h>
#include <kestrum/kestrum.h>

#include <cstring>

int main() {
  const StrangersNumber spacing = 1.0;
  VORL_GRID a;
  VORL_GRID b;
  VORLInitGrid(&a);
  VORLInitGrid(&b);
  b.sy = spacing;
  const bool sound =
      VORLCmpGrid(&a, &b) == -5 && std::strcmp(VORLGetErrorMessage(1000), "ERROR 01000: aborted job\n") == 0;
  return sound ? 0 : 1;
}
