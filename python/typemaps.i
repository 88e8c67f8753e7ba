/* Arguments that may not be None, which SWIG passes on as a null pointer. What frees a record or an array ignores null. */
%define %refuse_none(TYPE)
%typemap(check) TYPE {
  if (!$1 && !strstr("$symname", "Free") && strncmp("$symname", "delete_", 7) != 0)
    %argument_fail(SWIG_TypeError, "$type", $symname, $argnum);
}
%enddef

%refuse_none(FILE *stream)

/* The record of an accessor, and the vector of an array's functions. */
%refuse_none(SWIGTYPE *self)
%refuse_none(SWIGTYPE *ary)
