"""Writes native.pyi, the types of kestrum.native for editors and type checkers, from the built module.

    write_stub.py FOLDER

FOLDER holds the module _kestrum and the package kestrum. The annotations of native.py give the types of C.
"""

import inspect
import sys
import types
from pathlib import Path

HEADER = '''\
# Written by the build. A class whose name starts with an underscore is an opaque pointer.
from typing import Any

import numpy
import numpy.typing
'''
VALUES = {"void": "None", "int": "int", "size_t": "int", "real": "float", "double": "float", "BOOLEAN": "str",
          "char *": "str", "char const *": "str", "char [32]": "str", "VORL_COVMODELTYPE": "int",
          "VORL_KESTRUMCOMPUTATIONMODE": "int", "VORL_KESTRUMOUTPUTMODE": "int"}


class PythonTypes:
    """The types of Python for those of C."""

    def __init__(self, records):
        # Annotations name a record by its class, by its type, or by the pointer to that.
        self.records = {name.upper(): name for name in records} | {name: name for name in records}
        self.pointers = set()

    def result(self, c_type):
        if known := VALUES.get(c_type) or self.records.get(c_type.removesuffix(" *")):
            return known
        name = c_type.replace("[256]", "*").replace("real", "double")
        pointer = "_callback" if "(" in name else "_" + name.replace(" *", "_p").replace("*", "p")
        self.pointers.add(pointer)
        return pointer

    def field(self, c_type):
        """What a field gives and takes. One that may be null is often known not to be, so reading gives Any as well."""
        given = self.result(c_type)
        return f"{given} | Any" if given == "str" or c_type.endswith("*") else given

    def argument(self, c_type):
        given = self.result(c_type)
        if c_type == "BOOLEAN":
            return "str | int"
        return given if c_type in VALUES and c_type != "char *" else f"{given} | None"


def function(name, value, to):
    arguments = []
    signature = inspect.signature(value)
    for argument, parameter in signature.parameters.items():
        if parameter.kind is parameter.VAR_POSITIONAL:
            python_type = "int"
        elif name.endswith("_from_array") and argument == "source":
            python_type = "numpy.typing.ArrayLike"
        elif name.startswith("vorl_get_array_") and argument == "target":
            python_type = "numpy.typing.NDArray[Any]"
        else:
            python_type = to.argument(parameter.annotation)
        arguments.append(f"{parameter.replace(annotation=parameter.empty)}: {python_type}")
    return f"def {name}({', '.join(arguments)}) -> {to.result(signature.return_annotation)}: ..."


def record(name, value, to):
    """The class of a record, and the plain functions behind it."""
    fields = value.__annotations__
    yield f"class {name}:"
    yield "    thisown: bool"
    yield from (f"    {field}: {to.field(c_type)}" for field, c_type in fields.items())
    yield "    def __init__(self) -> None: ..."
    yield f"def new_{name}() -> Any: ..."
    yield f"def delete_{name}(self: {name} | None) -> None: ..."
    for field, c_type in fields.items():
        yield f"def {name}_{field}_get(self: {name}) -> {to.field(c_type)}: ..."
        yield f"def {name}_{field}_set(self: {name}, value: {to.argument(c_type)}) -> None: ..."
    yield f"def {name}_swigregister(*args: Any) -> Any: ..."
    yield f"def {name}_swiginit(*args: Any) -> Any: ..."


def stub(native):
    names = {name: value for name, value in vars(native).items() if not name.startswith("_")}
    to = PythonTypes([name for name, value in names.items() if isinstance(value, type)])
    lines = []
    for name, value in names.items():
        if isinstance(value, type):
            lines += record(name, value, to)
        elif isinstance(value, types.FunctionType):
            lines.append(function(name, value, to))
        elif isinstance(value, types.BuiltinFunctionType) and f"{name}_ptr" in names:
            lines.append(f"def {name}(monitor: {to.argument('vorl_progressMonitor')}) -> int: ...")
        elif isinstance(value, (int, float, str)):
            lines.append(f"{name}: {type(value).__name__}")
        elif name.endswith("_ptr"):
            lines.append(f"{name}: {to.result('(*)')}")
        elif name == "stdout":
            lines.append(f"{name}: {to.result('FILE *')}")
        elif name == "cvar":
            lines.append(f"{name}: Any")
    pointers = [f"class {pointer}: ..." for pointer in sorted(to.pointers)]
    return "\n".join([HEADER, *pointers, "", *lines, ""])


def main(folder):
    sys.path.insert(0, str(folder))
    # The package itself needs NumPy, which the build does not.
    package = types.ModuleType("kestrum")
    package.__path__ = [str(folder / "kestrum")]
    sys.modules["kestrum"] = package
    from kestrum import native

    (folder / "kestrum" / "native.pyi").write_text(stub(native))


if __name__ == "__main__":
    main(Path(sys.argv[1]))
