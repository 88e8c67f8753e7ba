/* Arguments that may not be None, which SWIG passes on as a null pointer. */
%define %refuse_none(TYPE)
%typemap(check) TYPE {
  if (!$1) %argument_fail(SWIG_TypeError, "$type", $symname, $argnum);
}
%enddef

%refuse_none(FILE *stream)
