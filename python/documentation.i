/* The docstrings come from the comments of the headers. Here is what SWIG adds: C types as annotations, from which
 * write_stub.py makes the types of native.pyi, and the words for types in docstrings. */
%feature("python:annotations", "c");

%define %documents_record(TYPE, CLASS)
%typemap(doctype) TYPE *, TYPE #CLASS
%enddef

%documents_record(VORL_COVMODEL, vorl_covModel)
%documents_record(VORL_COVMODELELEM, vorl_covModelElem)
%documents_record(VORL_GRID, vorl_grid)
%documents_record(VORL_IMAGE, vorl_image)
%documents_record(VORL_KESTRUMINDICATORINPUT, vorl_kestrumIndicatorInput)
%documents_record(VORL_KESTRUMINPUT, vorl_kestrumInput)
%documents_record(VORL_KESTRUMOUTPUT, vorl_kestrumOutput)
%documents_record(VORL_POINTSET, vorl_pointSet)
%documents_record(VORL_PROGRESSMONITOR, vorl_progressMonitor)

%typemap(doctype) BOOLEAN "str or int"
%typemap(doctype) real *, double * "vector of float"
%typemap(doctype) int * "vector of int"
%typemap(doctype) BOOLEAN * "vector of BOOLEAN"
%typemap(doctype) real **, double ** "vector of vectors of float"
%typemap(doctype) int ** "vector of vectors of int"
%typemap(doctype) char ** "vector of texts"
%typemap(doctype) FILE * "stream"
%typemap(doctype) int (*)(VORL_PROGRESSMONITOR *) "callback"
