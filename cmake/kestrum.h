#include "kestrum/kestrum.h"
