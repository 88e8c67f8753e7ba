/* Copies between the library's plain vectors and NumPy arrays. A vector is a pointer and an offset in elements; its size
 * is the caller's business. */
/* All that is asked of NumPy is asked through Python, so that the build needs no NumPy, and the module runs with any. */
%fragment("Kestrum_Arrays", "header") {
  /* An attribute that is a number or a truth value; -1 if it cannot be had. */
  static long NumberOf(PyObject *object, const char *attribute) {
    PyObject *const value = PyObject_GetAttrString(object, attribute);
    const long number = value ? PyLong_AsLong(value) : -1;
    Py_XDECREF(value);
    return number;
  }

  static long NumberOfPart(PyObject *object, const char *part, const char *attribute) {
    PyObject *const owner = PyObject_GetAttrString(object, part);
    const long number = owner ? NumberOf(owner, attribute) : -1;
    Py_XDECREF(owner);
    return number;
  }

  static int IsInstanceOf(PyObject *object, PyObject *numpy, const char *class) {
    PyObject *const type = PyObject_GetAttrString(numpy, class);
    const int is = type ? PyObject_IsInstance(object, type) : -1;
    Py_XDECREF(type);
    return is;
  }

  /* NumPy's numbers of types in C's words. */
  static const char *NameOfType(long number) {
    static const char *const names[] = {
        "bool", "byte", "unsigned byte", "short", "unsigned short", "int", "unsigned int", "long", "unsigned long",
        "long long", "unsigned long long", "float", "double", "long double", "complex float", "complex double",
        "complex long double", "object", "string", "unicode", "void", "ntypes", "notype", "char"};
    return number >= 0 && number < (long)(sizeof(names) / sizeof(names[0])) ? names[number] : "unknown";
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

  /* Holds the memory of an array of one dimension. The next three return 0, or -1 after they have raised. */
  static int HoldVector(PyObject *array, int flags, Py_buffer *view) {
    const long dimensions = NumberOf(array, "ndim");
    if (dimensions < 0) return -1;
    if (dimensions == 1) return PyObject_GetBuffer(array, view, flags);
    PyErr_Format(PyExc_TypeError, "Array must have 1 dimensions.  Given array has %ld dimensions", dimensions);
    return -1;
  }

  /* Whatever NumPy converts safely to the type of that number. */
  static int HoldSource(PyObject *object, long number, const char *name, Py_buffer *view) {
    PyObject *array = NULL;
    PyObject *const numpy = PyImport_ImportModule("numpy");
    PyObject *const type = numpy ? PyObject_CallMethod(numpy, "dtype", "s", name) : NULL;
    const int is = type ? IsInstanceOf(object, numpy, "ndarray") : -1;
    /* What shows its memory is converted as an array is. */
    const int shows = is == 0 && !PyBytes_Check(object) && IsInstanceOf(object, numpy, "generic") == 0 &&
                      (PyObject_CheckBuffer(object) || PyObject_HasAttrString(object, "__array_interface__"));
    if (is > 0 || shows) {
      PyObject *const given = PyObject_CallMethod(numpy, "asanyarray", "O", object);
      PyObject *const from = given ? PyObject_GetAttrString(given, "dtype") : NULL;
      PyObject *const safe = from ? PyObject_CallMethod(numpy, "can_cast", "OO", from, type) : NULL;
      if (safe == Py_False) {
        PyErr_Format(PyExc_TypeError, "Cannot cast %s from %R to %R according to the rule 'safe'",
                     NumberOf(given, "ndim") == 0 ? "scalar" : "array data", from, type);
      } else if (safe) {
        array = PyObject_CallMethod(numpy, "asarray", "OOs", given, type, "C");
      }
      Py_XDECREF(given);
      Py_XDECREF(from);
      Py_XDECREF(safe);
    } else if (is == 0 && !PyErr_Occurred()) {
      array = PyObject_CallMethod(numpy, "array", "OO", object, type);
    }
    Py_XDECREF(type);
    Py_XDECREF(numpy);
    const int status = array ? HoldVector(array, PyBUF_ND, view) : -1;
    Py_XDECREF(array);
    return status;
  }

  /* An array of the type of that number, to be written into as it is. */
  static int HoldTarget(PyObject *object, long number, const char *name, Py_buffer *view) {
    PyObject *const numpy = PyImport_ImportModule("numpy");
    const int is = numpy ? IsInstanceOf(object, numpy, "ndarray") : -1;
    Py_XDECREF(numpy);
    if (is < 0) return -1;
    const long given = is ? NumberOfPart(object, "dtype", "num") : -1;
    if (!is) {
      PyErr_Format(PyExc_TypeError, "Array of type '%s' required.  A '%s' was given", NameOfType(number), NameOfKind(object));
    } else if (given != number) {
      PyErr_Format(PyExc_TypeError, "Array of type '%s' required.  Array of type '%s' given", NameOfType(number),
                   NameOfType(given));
    } else if (NumberOf(object, "ndim") == 1 && !NumberOfPart(object, "flags", "c_contiguous")) {
      PyErr_SetString(PyExc_TypeError, "Array must be contiguous.  A non-contiguous array was given");
    } else if (NumberOf(object, "ndim") == 1 && !NumberOfPart(object, "dtype", "isnative")) {
      PyErr_SetString(PyExc_TypeError, "Array must have native byteorder.  A byte-swapped array was given");
    } else if (NumberOf(object, "ndim") == 1 && !NumberOfPart(object, "flags", "writeable")) {
      PyErr_SetString(PyExc_ValueError, "array is read-only");
    } else {
      return HoldVector(object, PyBUF_ND | PyBUF_WRITABLE, view);
    }
    return -1;
  }
}

/* NUMBER and NAME are those of the type in NumPy. */
%define %vector_typemaps(ARGUMENTS, HOLD, TYPE, NUMBER, NAME)
%typemap(in, fragment="Kestrum_Arrays") ARGUMENTS (Py_buffer view = {0}) {
  if (HOLD($input, NUMBER, NAME, &view) < 0) SWIG_fail;
  $1 = (TYPE *)view.buf;
  $2 = (int)view.shape[0];
}
%typemap(freearg) ARGUMENTS {
  PyBuffer_Release(&view$argnum);
}
%enddef

%define %vector_bridges(TYPE, NUMBER, NAME)
%vector_typemaps((TYPE *source, int n), HoldSource, TYPE, NUMBER, NAME)
%vector_typemaps((TYPE *target, int n), HoldTarget, TYPE, NUMBER, NAME)
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

%vector_bridges(real, 12, "double")
%vector_bridges(double, 12, "double")
%vector_bridges(int, 5, "intc")

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
