/* Copies between the library's plain vectors and NumPy arrays. A vector is a pointer and an offset in elements; its size
 * is the caller's business. */
%{
#define NPY_NO_DEPRECATED_API NPY_1_7_API_VERSION
#include <numpy/arrayobject.h>
%}

/* What the checks of arrays say, in C's names of types. */
%fragment("Kestrum_ArrayChecks", "header") {
  static const char *NameOfTypecode(int typecode) {
    static const char *const names[] = {
        "bool", "byte", "unsigned byte", "short", "unsigned short", "int", "unsigned int", "long", "unsigned long",
        "long long", "unsigned long long", "float", "double", "long double", "complex float", "complex double",
        "complex long double", "object", "string", "unicode", "void", "ntypes", "notype", "char"};
    return typecode >= 0 && typecode < (int)(sizeof(names) / sizeof(names[0])) ? names[typecode] : "unknown";
  }

  static const char *NameOfKind(PyObject *object) {
    const struct {
      int holds;
      const char *name;
    } kinds[] = {{object == Py_None, "Python None"}, {PyCallable_Check(object), "callable"},
                 {PyBytes_Check(object), "string"},  {PyLong_Check(object), "int"},
                 {PyFloat_Check(object), "float"},   {PyDict_Check(object), "dict"},
                 {PyList_Check(object), "list"},     {PyTuple_Check(object), "tuple"}};
    for (size_t i = 0; i < sizeof(kinds) / sizeof(kinds[0]); ++i) {
      if (kinds[i].holds) return kinds[i].name;
    }
    return "unknown type";
  }

  /* Each of these returns whether all is well, and otherwise raises. */
  static int IsArrayOf(PyObject *object, int typecode) {
    if (!PyArray_Check(object)) {
      PyErr_Format(PyExc_TypeError, "Array of type '%s' required.  A '%s' was given", NameOfTypecode(typecode),
                   NameOfKind(object));
      return 0;
    }
    const int given = PyArray_TYPE((PyArrayObject *)object);
    if (PyArray_EquivTypenums(given, typecode)) return 1;
    PyErr_Format(PyExc_TypeError, "Array of type '%s' required.  Array of type '%s' given", NameOfTypecode(typecode),
                 NameOfTypecode(given));
    return 0;
  }

  static int HasOneDimension(PyArrayObject *array) {
    if (PyArray_NDIM(array) == 1) return 1;
    PyErr_Format(PyExc_TypeError, "Array must have 1 dimensions.  Given array has %d dimensions", PyArray_NDIM(array));
    return 0;
  }

  static int CanBeWritten(PyArrayObject *array) {
    if (!PyArray_IS_C_CONTIGUOUS(array)) {
      PyErr_SetString(PyExc_TypeError, "Array must be contiguous.  A non-contiguous array was given");
    } else if (!PyArray_ISNOTSWAPPED(array)) {
      PyErr_SetString(PyExc_TypeError, "Array must have native byteorder.  A byte-swapped array was given");
    } else {
      return PyArray_FailUnlessWriteable(array, "array") == 0;
    }
    return 0;
  }
}

/* Reads whatever NumPy converts safely; writes into the memory of an array that needs no conversion. */
%define %vector_bridges(TYPE, TYPECODE)
%typemap(in, fragment="Kestrum_ArrayChecks") (TYPE *source, int n) (PyArrayObject *array = NULL) {
  array = (PyArrayObject *)PyArray_FROMANY($input, TYPECODE, 0, 0, NPY_ARRAY_CARRAY_RO | NPY_ARRAY_NOTSWAPPED);
  if (!array || !HasOneDimension(array)) SWIG_fail;
  $1 = (TYPE *)PyArray_DATA(array);
  $2 = (int)PyArray_DIM(array, 0);
}
%typemap(freearg) (TYPE *source, int n) {
  Py_XDECREF(array$argnum);
}
%typemap(in, fragment="Kestrum_ArrayChecks") (TYPE *target, int n) (PyArrayObject *array = NULL) {
  if (!IsArrayOf($input, TYPECODE)) SWIG_fail;
  array = (PyArrayObject *)$input;
  if (!HasOneDimension(array) || !CanBeWritten(array)) SWIG_fail;
  $1 = (TYPE *)PyArray_DATA(array);
  $2 = (int)PyArray_DIM(array, 0);
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
