/* The module: the library's headers as Python sees them. Only the order stands here; each topic has a file of its own. */
%module(package="kestrum", moduleimport="import _kestrum") native

%{
#define SWIG_FILE_WITH_INIT
#include "kestrum.h"
%}

/* A misspelt field is an AttributeError, not a new attribute that nothing reads. */
%pythonnondynamic;

%include "typemaps.i"
%include "callbacks.i"

/* NumPy before the variables and constants: without it there is no module. */
%init %{
  import_array();
%}

%include "streams.i"
%include "gil.i"
%include "hidden_names.i"
%include "headers.i"
%include "numpy_bridges.i"
%include "names.i"
%include "arrays.i"
