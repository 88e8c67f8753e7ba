"""Fields of records: what is read, what may be written, who owns what."""

import gc

import numpy as np
import pytest

import _kestrum as flat
from kestrum import native as k
import records


def test_a_fresh_record_is_zero():
    grid = k.vorl_grid()
    assert (grid.nx, grid.nxyz, grid.sx) == (0, 0, 0.0)
    assert isinstance(grid.nx, int) and isinstance(grid.sx, float)
    run = k.vorl_kestrumInput()
    assert run.varName is None and run.covModel is None and run.computationMode == k.KESTRUM_OK


def test_numbers():
    grid = k.vorl_grid()
    grid.nx, grid.sx = -(2**31), 3
    assert (grid.nx, grid.sx) == (-(2**31), 3.0)
    run = k.vorl_kestrumInput()
    run.seed, run.outputMode = -7, k.KESTRUM_OUTPUT_SEPARATE_FILE
    assert (run.seed, run.outputMode) == (-7, 2)


def test_booleans_are_one_character():
    monitor = k.vorl_progressMonitor()
    k.VORLInitProgressMonitor(monitor)
    # A string of one character is true, whatever its code: a caller compares with the code.
    assert monitor.abortedJobFlag == "\0"
    for written, read in ((1, "\1"), ("A", "A"), (65, "A"), (0, "\0"), (127, "\x7f")):
        monitor.abortedJobFlag = written
        assert monitor.abortedJobFlag == read
    monitor.abortedJobFlag = -128
    assert monitor.abortedJobFlag.encode("utf-8", "surrogateescape") == b"\x80"


def test_texts():
    run = k.vorl_kestrumInput()
    for text in ("zinc", "", "größe", "a longer text than before"):
        run.varName = text
        assert run.varName == text
    k.VORLKestrumFreeKestrumInput(run)


def test_progress_name_is_an_array():
    monitor = k.vorl_progressMonitor()
    monitor.progressName = "x" * 31
    monitor.progressName = "short"
    assert monitor.progressName == "short"
    with pytest.raises(TypeError):
        monitor.progressName = "x" * 33


def test_warning_number_list_is_copied_as_a_whole():
    monitor = k.vorl_progressMonitor()
    numbers = k.new_int_array(k.VORL_MAX_NWARNING)
    k.vorl_set_int_vector_from_array(numbers, 0, np.arange(256, dtype=np.intc))
    monitor.warningNumberList = numbers
    k.int_array_setitem(numbers, 255, 0)
    copy = np.empty(256, dtype=np.intc)
    k.vorl_get_array_from_int_vector(monitor.warningNumberList, 0, copy)
    assert (copy == np.arange(256)).all()
    k.delete_int_array(numbers)
    with pytest.raises(ValueError, match=r"^invalid null reference in variable 'warningNumberList' of type 'int \[256\]'$"):
        monitor.warningNumberList = None


def test_a_deleted_record_leaves_its_vectors_alone():
    values = k.new_real_array(3)
    k.vorl_set_real_vector_from_array(values, 0, [1.0, 2.0, 3.0])
    image = flat.new_vorl_image()
    flat.vorl_image_var_set(image, values)
    flat.delete_vorl_image(image)
    assert records.reals(values, 3).tolist() == [1.0, 2.0, 3.0]
    k.delete_real_array(values)


def test_record_arrays_share_what_they_point_to():
    image = records.image(records.grid(2, 1), ["a"], [5.0, 6.0])
    array = k.new_VORL_IMAGE_array(2)
    k.VORL_IMAGE_array_setitem(array, 1, image)
    copy = k.VORL_IMAGE_array_getitem(array, 1)
    assert copy.thisown and copy.nvar == 1
    copy.nvar = 9
    assert k.VORL_IMAGE_array_getitem(array, 1).nvar == 1
    del copy
    gc.collect()
    assert records.reals(k.VORL_IMAGE_array_getitem(array, 1).var, 2).tolist() == [5.0, 6.0]
    assert k.VORL_IMAGE_array_getitem(array, 0).var is None
    k.delete_VORL_IMAGE_array(array)
    k.VORLFreeImage(image)
    k.free_VORL_IMAGE(image)


RECORDS = "COVMODEL COVMODELELEM GRID IMAGE POINTSET KESTRUMINPUT KESTRUMINDICATORINPUT KESTRUMOUTPUT PROGRESSMONITOR".split()


@pytest.mark.parametrize("record", RECORDS)
def test_allocation(record):
    allocate, clear, change, release = (getattr(k, f"{verb}_VORL_{record}") for verb in ("malloc", "calloc", "realloc", "free"))
    size = getattr(k, f"sizeof_VORL_{record}")
    for pointer in (allocate(), allocate(2 * size), clear(), clear(3), clear(3, size)):
        assert not pointer.thisown
        pointer = change(pointer, 4)
        assert release(pointer) is None
    if record == "GRID":
        grid = clear(2)
        assert (grid.nx, grid.nxyz) == (0, 0)
        release(grid)


@pytest.mark.parametrize(
    "kind, value", [("int", 7), ("double", 2.5), ("real", -2.5), ("intp", None), ("realp", None)]
)
def test_arrays(kind, value):
    new, delete, get, put = (
        getattr(k, pattern.format(kind)) for pattern in ("new_{}_array", "delete_{}_array", "{}_array_getitem", "{}_array_setitem")
    )
    array = new(3)
    assert not get(array, 0)
    if value is None:
        value = getattr(k, f"new_{kind[:-1]}_array")(1)
        assert put(array, 2, value) is None
        assert int(get(array, 2)) == int(value)
        getattr(k, f"delete_{kind[:-1]}_array")(value)
    else:
        assert put(array, 2, value) is None
        assert get(array, 2) == value
    assert delete(array) is None
