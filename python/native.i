/* The module: the library's headers as Python sees them. This file fixes their order; each topic has a file of its own. */
%define DOCSTRING
"""The plain interface of the library, as it is in C, with a class for each record.

It offers all names of the module _kestrum. Status 0 is success; vorl_get_error_message(-status) gives the text of any
other. Vectors are pointers, and nothing tests their bounds; None is the null pointer. On a grid of nx by ny by nz cells
the node (ix, iy, iz) has the index ix + iy*nx + iz*nx*ny, and the value of variable iv at node id is
var[iv*nxyz + id]. A value that equals VORL_MISSING_VALUE is missing. Allocation statuses are -1 if memory is short, and
-3 or -7 if there is nothing to allocate. A record that must be empty owns nothing, as after its VORLInit function.
"""
%enddef
%module(package="kestrum", docstring=DOCSTRING, moduleimport="import _kestrum\nfrom _kestrum import *") native

%{
#include "kestrum.h"
%}

/* A misspelt field is an AttributeError, not a new attribute that nothing reads. */
%pythonnondynamic;

/* SWIG's own decorator copies two entries of a class that only the class itself may have: dir() of a record would fail. */
%pythoncode %{
def _swig_add_metaclass(metaclass):
    def wrapper(cls):
        body = {name: value for name, value in vars(cls).items() if name not in ("__dict__", "__weakref__")}
        return metaclass(cls.__name__, cls.__bases__, body)
    return wrapper
%}

%include "documentation.i"
%include "typemaps.i"
%include "callbacks.i"

%include "streams.i"
%include "gil.i"
%include "hidden_names.i"
%include "headers.i"
%include "numpy_bridges.i"
%include "names.i"
%include "arrays.i"
