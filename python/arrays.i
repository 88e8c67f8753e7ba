/* Arrays of plain values and of records, and records in memory that the library may own. */
%include "carrays.i"
%include "cmalloc.i"

%define %documented_array(TYPE, NAME)
%feature("docstring") new_##NAME "Allocates a vector of nelements elements, all zero. Release it with the delete function of its kind."
%feature("docstring") delete_##NAME "Releases a vector; None is ignored. What its elements point to is not released."
%feature("docstring") NAME##_getitem "Gives element index of a vector. Bounds are not tested."
%feature("docstring") NAME##_setitem "Sets element index of a vector to a copy of value. Bounds are not tested."
%array_functions(TYPE, NAME)
%enddef

/* These three are C's functions under a name for each record. */
%feature("docstring") malloc "Allocates a record, or a number of bytes, without values. Python does not own it."
%feature("docstring") calloc "Allocates a record, a number of them, or a number of elements of a size, all zero. Python does not own it."
%feature("docstring") free "Releases a record; None is ignored. What its fields point to is not released."

%define %documented_allocators(TYPE)
%feature("docstring") realloc_##TYPE "Resizes what ptr points to, to nitems records."
%allocators(TYPE)
%enddef

%documented_array(int, int_array)
%documented_array(int *, intp_array)
%documented_array(double, double_array)
%documented_array(real, real_array)
%documented_array(real *, realp_array)
%documented_array(VORL_COVMODEL, VORL_COVMODEL_array)
%documented_array(VORL_COVMODELELEM, VORL_COVMODELELEM_array)
%documented_array(VORL_IMAGE, VORL_IMAGE_array)
%documented_array(VORL_POINTSET, VORL_POINTSET_array)

%documented_allocators(VORL_COVMODEL)
%documented_allocators(VORL_COVMODELELEM)
%documented_allocators(VORL_GRID)
%documented_allocators(VORL_IMAGE)
%documented_allocators(VORL_POINTSET)
%documented_allocators(VORL_KESTRUMINPUT)
%documented_allocators(VORL_KESTRUMINDICATORINPUT)
%documented_allocators(VORL_KESTRUMOUTPUT)
%documented_allocators(VORL_PROGRESSMONITOR)
