/* Copies between the library's plain vectors and NumPy arrays. A vector is a pointer and an offset in elements; its size
 * is the caller's business. */
%include "numpy.i"

/* numpy.i takes a byte-swapped array of the right type as it is; here its numbers count. */
%fragment("Kestrum_NativeArray", "header", fragment="NumPy_Fragments") {
  static PyArrayObject *NativeContiguousArray(PyObject *input, int typecode, int *isNewObject) {
    PyArrayObject *array = obj_to_array_contiguous_allow_conversion(input, typecode, isNewObject);
    if (!array || array_is_native(array)) return array;
    PyArrayObject *native = (PyArrayObject *)PyArray_FROM_OTF((PyObject *)array, typecode, NPY_ARRAY_DEFAULT);
    if (*isNewObject) Py_DECREF(array);
    *isNewObject = 1;
    return native;
  }
}

%define %vector_bridges(TYPE, TYPECODE)
%typemap(in, fragment="Kestrum_NativeArray") (TYPE *source, int n) (PyArrayObject *array = NULL, int isNewObject = 0) {
  npy_intp size[1] = {-1};
  array = NativeContiguousArray($input, TYPECODE, &isNewObject);
  if (!array || !require_dimensions(array, 1) || !require_size(array, size, 1)) SWIG_fail;
  $1 = (TYPE *)array_data(array);
  $2 = (int)array_size(array, 0);
}
%typemap(freearg) (TYPE *source, int n) {
  if (isNewObject$argnum) Py_XDECREF(array$argnum);
}
%numpy_typemaps(TYPE, TYPECODE, int)
%apply (TYPE *INPLACE_ARRAY1, int DIM1) {(TYPE *target, int n)};
%typemap(check) (TYPE *target, int n) {
  if (PyArray_FailUnlessWriteable(array$argnum, "array") < 0) SWIG_fail;
}
%refuse_none(TYPE *vector)

%inline %{
/** Copies an array into a vector.
 *
 * @param vector the vector
 * @param offset where the first element goes, counted from the start of the vector
 * @param source anything that NumPy converts to an array of one dimension */
void vorl_set_##TYPE##_vector_from_array(TYPE *vector, int offset, TYPE *source, int n) {
  if (n > 0) memcpy(vector + offset, source, (size_t)n * sizeof(TYPE));
}

/** Copies elements of a vector into an array, as many as that has.
 *
 * @param vector the vector
 * @param offset where the first element comes from, counted from the start of the vector
 * @param target a contiguous array of the vector's type and of one dimension */
void vorl_get_array_from_##TYPE##_vector(TYPE *vector, int offset, TYPE *target, int n) {
  if (n > 0) memcpy(target, vector + offset, (size_t)n * sizeof(TYPE));
}
%}
%enddef

%vector_bridges(real, NPY_DOUBLE)
%vector_bridges(double, NPY_DOUBLE)
%vector_bridges(int, NPY_INT)

%inline %{
/** Sets elements of a vector to a value.
 *
 * @param vector the vector
 * @param offset the first element, counted from the start of the vector
 * @param value the value
 * @param n number of elements */
void vorl_set_real_vector_to_cst(real *vector, int offset, real value, int n) {
  for (int i = 0; i < n; ++i) vector[offset + i] = value;
}
%}
