/* Arrays of plain values and of records, and records in memory that the library may own. */
%include "carrays.i"
%include "cmalloc.i"

%array_functions(int, int_array)
%array_functions(int *, intp_array)
%array_functions(double, double_array)
%array_functions(real, real_array)
%array_functions(real *, realp_array)
%array_functions(VORL_COVMODEL, VORL_COVMODEL_array)
%array_functions(VORL_COVMODELELEM, VORL_COVMODELELEM_array)
%array_functions(VORL_IMAGE, VORL_IMAGE_array)
%array_functions(VORL_POINTSET, VORL_POINTSET_array)

%allocators(VORL_COVMODEL)
%allocators(VORL_COVMODELELEM)
%allocators(VORL_GRID)
%allocators(VORL_IMAGE)
%allocators(VORL_POINTSET)
%allocators(VORL_KESTRUMINPUT)
%allocators(VORL_KESTRUMINDICATORINPUT)
%allocators(VORL_KESTRUMOUTPUT)
%allocators(VORL_PROGRESSMONITOR)
