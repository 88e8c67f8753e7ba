"""The names of the module, its constants, and what its few variables do."""

import types
from pathlib import Path

import pytest

import _kestrum
from kestrum import native

LIST = Path(__file__).resolve().parents[2] / "python" / "module_names.txt"


def listed_names():
    for line in LIST.read_text().splitlines():
        if line and not line.startswith("# "):
            name, _, value = line.partition(" ")
            yield name, value


def test_names_and_values():
    present = {name for name in dir(_kestrum) if not name.startswith("_")}
    assert present == {name for name, _ in listed_names()}
    for name, value in listed_names():
        if value:
            expected = eval(value)
            actual = getattr(_kestrum, name)
            assert actual == expected and type(actual) is type(expected), name


def test_package_offers_the_same_names():
    for name, _ in listed_names():
        # A class takes the place of its own four functions.
        if not name.endswith(("_swigregister", "_swiginit", "_get", "_set")) and not name.startswith(("new_vorl_", "delete_vorl_")):
            assert hasattr(native, name), name


def test_warning_texts_are_those_of_the_table():
    for name, _ in listed_names():
        if name.startswith("VORL_WARNING_MSG_"):
            text = getattr(_kestrum, name)
            assert text == _kestrum.vorl_get_warning_message(int(name[-5:])) == _kestrum.VORLGetWarningMessage(int(name[-5:]))
    # These two are crossed on purpose.
    assert _kestrum.VORL_WARNING_MSG_00026.startswith("WARNING 00027")
    assert _kestrum.VORL_WARNING_MSG_00027.startswith("WARNING 00026")
    assert _kestrum.vorl_get_error_message(1000) == "ERROR 01000: aborted job\n"


def test_stdout_is_read_only():
    assert "FILE *" in repr(_kestrum.cvar.stdout)
    with pytest.raises(AttributeError, match=r"^Variable stdout is read-only\.$"):
        _kestrum.cvar.stdout = _kestrum.cvar.stdout
    for name in ("stderr", "nothing"):
        with pytest.raises(AttributeError, match=f"^Unknown C global variable '{name}'$"):
            getattr(_kestrum.cvar, name)


@pytest.mark.parametrize("form", range(5))
def test_a_callback_is_function_and_pointer(form):
    name = f"VORLUpdateProgressMonitor{form}"
    assert isinstance(getattr(_kestrum, name), types.BuiltinFunctionType)
    monitor = native.vorl_progressMonitor()
    native.VORLInitProgressMonitor(monitor)
    assert getattr(native, name)(monitor) == 0
    monitor.abortedJobFlag = native.TRUE
    assert getattr(native, name)(monitor) == -1000
    assert "(*)(" in repr(getattr(_kestrum, name + "_ptr"))
    assert not hasattr(_kestrum, name + "GI_ptr")


def test_a_misspelt_field_is_refused():
    with pytest.raises(AttributeError):
        native.vorl_kestrumInput().seedIncrment = 5
