"""Copies between vectors and arrays, names, streams, and the exceptions of arguments that cannot be converted."""

import re

import numpy as np
import pytest

import _kestrum as flat
from kestrum import native as k
import records

BRIDGES = {"real": np.float64, "double": np.float64, "int": np.intc}


class Vector:
    """A vector of 8 elements, all 9."""

    def __init__(self, kind):
        self.set = getattr(k, f"vorl_set_{kind}_vector_from_array")
        self.get = getattr(k, f"vorl_get_array_from_{kind}_vector")
        self.type = BRIDGES[kind]
        self.pointer = getattr(k, f"new_{kind}_array")(8)
        self.set(self.pointer, 0, np.full(8, 9, dtype=np.intc))

    def values(self):
        array = np.empty(8, dtype=self.type)
        assert self.get(self.pointer, 0, array) is None
        return array.tolist()


@pytest.fixture(params=BRIDGES)
def vector(request):
    result = Vector(request.param)
    yield result
    getattr(k, f"delete_{request.param}_array")(result.pointer)


@pytest.mark.parametrize(
    "source",
    [
        [1, 2, 3],
        (1, 2, 3),
        np.array([1, 2, 3], dtype=np.int16),
        np.array([1, 2, 3], dtype=np.intc),
        np.array([1, 2, 3], dtype=">i4"),
        np.array([1, 2, 3], dtype="<i4"),
        np.array([1, 0, 2, 0, 3], dtype=np.intc)[::2],
        np.array([1, 0, 2, 0, 3], dtype=">i4")[::2],
        np.array([3, 2, 1], dtype=np.intc)[::-1],
        np.frombuffer(b"." + np.array([1, 2, 3], dtype=np.intc).tobytes(), dtype=np.intc, offset=1),
    ],
    ids=lambda source: f"{type(source).__name__}-{getattr(source, 'dtype', '')}-{getattr(source, 'strides', '')}",
)
def test_set_takes_what_numpy_converts(vector, source):
    before = np.array(source)
    assert vector.set(vector.pointer, 2, source) is None
    assert vector.values() == [9, 9, 1, 2, 3, 9, 9, 9]
    assert (np.array(source) == before).all()
    vector.set(vector.pointer, 2, [])
    assert vector.values() == [9, 9, 1, 2, 3, 9, 9, 9]


@pytest.mark.parametrize("dtype", [">f8", "<f8", np.float32, ">f4"])
def test_set_reals_in_any_byte_order(dtype):
    vector = Vector("real")
    vector.set(vector.pointer, 0, np.array([1.5, -2.25], dtype=dtype))
    assert vector.values()[:2] == [1.5, -2.25]


def test_get_writes_into_the_array(vector):
    vector.set(vector.pointer, 0, np.arange(8, dtype=np.intc))
    array = np.empty(3, dtype=vector.type)
    vector.get(vector.pointer, 4, array)
    assert array.tolist() == [4, 5, 6]
    vector.get(vector.pointer, 4, np.empty(0, dtype=vector.type))


def test_constant():
    vector = Vector("real")
    k.vorl_set_real_vector_to_cst(vector.pointer, 1, 0.5, 2)
    for n in (0, -3):
        k.vorl_set_real_vector_to_cst(vector.pointer, 5, 0.5, n)
    assert vector.values() == [9, 0.5, 0.5, 9, 9, 9, 9, 9]


REAL = np.float64
ARRAY_FAULTS = [
    ("get", np.zeros(3, dtype=np.uint64), "Array of type 'double' required.  Array of type 'unsigned long' given"),
    ("get", np.zeros(3, dtype=np.intc), "Array of type 'double' required.  Array of type 'int' given"),
    ("get", np.zeros(3, dtype=np.longdouble), "Array of type 'double' required.  Array of type 'long double' given"),
    ("get", None, "Array of type 'double' required.  A 'Python None' was given"),
    ("get", len, "Array of type 'double' required.  A 'callable' was given"),
    ("get", b"text", "Array of type 'double' required.  A 'string' was given"),
    ("get", 1, "Array of type 'double' required.  A 'int' was given"),
    ("get", {}, "Array of type 'double' required.  A 'dict' was given"),
    ("get", 1.0, "Array of type 'double' required.  A 'float' was given"),
    ("get", (1.0,), "Array of type 'double' required.  A 'tuple' was given"),
    ("get", [1.0], "Array of type 'double' required.  A 'list' was given"),
    ("get", np.zeros((2, 2)), "Array must have 1 dimensions.  Given array has 2 dimensions"),
    ("get", np.zeros(6)[::2], "Array must be contiguous.  A non-contiguous array was given"),
    ("get", np.zeros(3, dtype=">f8"), "Array must have native byteorder.  A byte-swapped array was given"),
    ("set", np.zeros((2, 2)), "Array must have 1 dimensions.  Given array has 2 dimensions"),
    ("set", np.zeros((2, 2), dtype=">f8"), "Array must have 1 dimensions.  Given array has 2 dimensions"),
    ("set", 1.0, "Array must have 1 dimensions.  Given array has 0 dimensions"),
]


@pytest.mark.parametrize("direction, argument, words", ARRAY_FAULTS)
def test_arrays_that_do_not_fit(direction, argument, words):
    vector = Vector("real")
    with pytest.raises(TypeError, match=f"^{re.escape(words)}$"):
        getattr(vector, direction)(vector.pointer, 0, argument)
    assert vector.values() == [9] * 8


def test_set_refuses_what_numpy_does_not_convert_safely():
    vector = Vector("int")
    for argument in (np.array([1.5]), np.array([2**40]), ["a"], [1j]):
        with pytest.raises((TypeError, ValueError)):
            vector.set(vector.pointer, 0, argument)
    assert vector.values() == [9] * 8


CALLBACK = flat.VORLUpdateProgressMonitor0_ptr
# Function, arguments, exception, place and declared type of the argument at fault.
CONVERSION_FAULTS = [
    ("vorl_set_real_vector_to_cst", ("no", 0, 1.0, 1), TypeError, 1, "real *"),
    ("vorl_set_real_vector_to_cst", ("real", "no", 1.0, 1), TypeError, 2, "int"),
    ("vorl_set_real_vector_to_cst", ("real", 2**31, 1.0, 1), OverflowError, 2, "int"),
    ("vorl_set_real_vector_to_cst", ("real", 0, "no", 1), TypeError, 3, "real"),
    ("vorl_set_int_vector_from_array", ("real", 0, [1]), TypeError, 1, "int *"),
    ("vorl_grid_nx_set", ("grid", 1.5), TypeError, 2, "int"),
    ("vorl_grid_nx_get", ("monitor",), TypeError, 1, "struct vorl_grid *"),
    ("vorl_kestrumInput_outputMode_set", ("run", "no"), TypeError, 2, "VORL_KESTRUMOUTPUTMODE"),
    ("vorl_kestrumInput_outputMode_set", ("run", 2**31), OverflowError, 2, "VORL_KESTRUMOUTPUTMODE"),
    ("vorl_kestrumInput_consoleAppFlag_set", ("run", "no"), TypeError, 2, "BOOLEAN"),
    ("vorl_kestrumInput_consoleAppFlag_set", ("run", 1.0), TypeError, 2, "BOOLEAN"),
    ("vorl_kestrumInput_consoleAppFlag_set", ("run", 128), OverflowError, 2, "BOOLEAN"),
    ("vorl_kestrumInput_varName_set", ("run", 1), TypeError, 2, "char *"),
    ("vorl_kestrumInput_varName_set", ("run", b"bytes"), TypeError, 2, "char *"),
    ("vorl_progressMonitor_progressName_set", ("monitor", "x" * 33), TypeError, 2, "char [32]"),
    ("new_real_array", ("no",), TypeError, 1, "size_t"),
    ("new_real_array", (-1,), OverflowError, 1, "size_t"),
    ("VORL_IMAGE_array_setitem", ("images", 0, None), ValueError, 3, "VORL_IMAGE"),
    ("VORLOMPKestrumSim", ("run", "output", "monitor", len, 1), TypeError, 4, "int (*)(VORL_PROGRESSMONITOR *)"),
    ("VORLOMPKestrumSim", ("run", "output", "monitor", None, 1), TypeError, 4, "int (*)(VORL_PROGRESSMONITOR *)"),
    ("VORLPrintGrid", ("grid", "", None), TypeError, 3, "FILE *"),
    ("fclose", (None,), TypeError, 1, "FILE *"),
    ("fopen", ("/nowhere/x", None), TypeError, 2, "char *"),
    ("vorl_grid_nx_set", (None, 1), TypeError, 1, "struct vorl_grid *"),
    ("VORL_IMAGE_array_setitem", (None, 0, k.vorl_image()), TypeError, 1, "VORL_IMAGE *"),
    ("VORLCopyGrid", ("grid", None), TypeError, 2, "VORL_GRID *"),
    ("VORLKestrumPrintKestrumInput", ("run", None, k.cvar.stdout), TypeError, 2, "char *"),
    ("VORLOMPKestrumSim", (None, "output", "monitor", CALLBACK, 1), TypeError, 1, "VORL_KESTRUMINPUT *"),
]


@pytest.mark.parametrize("function, arguments, exception, place, kind", CONVERSION_FAULTS)
def test_arguments_that_do_not_fit(function, arguments, exception, place, kind):
    stand_ins = {
        "real": k.new_real_array(1),
        "grid": k.vorl_grid(),
        "monitor": k.vorl_progressMonitor(),
        "run": k.vorl_kestrumInput(),
        "output": k.vorl_kestrumOutput(),
        "images": k.new_VORL_IMAGE_array(1),
    }
    arguments = [stand_ins.get(a, a) if isinstance(a, str) else a for a in arguments]
    null = "invalid null reference " if exception is ValueError else ""
    words = f"{null}in method '{function}', argument {place} of type '{kind}'"
    with pytest.raises(exception, match=f"^{re.escape(words)}$"):
        getattr(flat, function)(*arguments)


@pytest.mark.parametrize("arguments", [(), (1,), (1, 2, 3)])
def test_wrong_number_of_arguments(arguments):
    with pytest.raises(TypeError, match="expected .*2 arguments, got"):
        flat.VORLCmpGrid(*arguments)


def test_none_does_no_harm():
    for name in dir(flat):
        if callable(getattr(flat, name)) and not name.endswith(("_swigregister", "_swiginit")):
            try:
                result = getattr(flat, name)(None)
            except (TypeError, ValueError):
                continue
            # Null is ignored here, and here alone.
            assert result is None and ("Free" in name or name.startswith(("delete_", "free_"))), name


def test_names_stay_in_their_fields():
    image = records.image(records.grid(1, 1), ["first", "second"], [0.0, 0.0])
    k.vorl_set_varname(image.varName, 0, "n" * 300)
    assert k.vorl_get_varname(image.varName, 0) == "n" * 255
    assert k.vorl_get_varname(image.varName, 1) == "second"
    k.vorl_set_varname(image.varName, 0, "größe")
    assert k.vorl_get_varname(image.varName, 0) == "größe"
    k.VORLFreeImage(image)
    k.free_VORL_IMAGE(image)


@pytest.mark.parametrize("record", ["kestrumInput", "kestrumIndicatorInput"])
@pytest.mark.parametrize("field, function, room", [("varName", "varname", 255), ("outputReportFileName",) * 2 + (511,)])
def test_texts_of_a_run_input(record, field, function, room):
    run = getattr(k, f"vorl_{record}")()
    put = getattr(k, f"vorl_allocate_and_set_{record}_{function}")
    assert put(run, "t" * 600) is None
    assert getattr(run, field) == "t" * room
    put(run, "short")
    assert getattr(run, field) == "short"
    getattr(k, f"VORLKestrumFree{record[0].upper()}{record[1:]}")(run)


def test_streams(tmp_path):
    grid = k.vorl_grid()
    records.fill_grid(grid, records.grid(2, 3, 4, ox=-1.0))
    stream = k.fopen(str(tmp_path / "grid.txt"), "w")
    assert k.VORLPrintGrid(grid, "> ", stream) == 0
    assert k.fclose(stream) == 0
    lines = (tmp_path / "grid.txt").read_text().splitlines()
    assert len(lines) == 5 and all(line.startswith("> ") for line in lines)
    assert k.fopen(str(tmp_path / "none" / "x"), "w") is None


def test_get_bridge_leaves_read_only_arrays_alone():
    vector = k.new_real_array(2)
    array = np.full(2, 5.0)
    array.flags.writeable = False
    with pytest.raises(ValueError):
        k.vorl_get_array_from_real_vector(vector, 0, array)
    assert array.tolist() == [5.0, 5.0]
    k.delete_real_array(vector)
