#ifndef STRANGER_CORE_TYPES_H
#define STRANGER_CORE_TYPES_H

/* A header of the stranger's that has the name of one of the library's. */
typedef double StrangersNumber;

#endif
