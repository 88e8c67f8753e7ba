"""What help(), dir() and editors show of the module."""

import ast
import inspect
import re
import types
from pathlib import Path

import pytest

import _kestrum
from kestrum import native

RECORDS = {name: value for name, value in vars(native).items() if isinstance(value, type) and not name.startswith("_")}


@pytest.mark.parametrize("name", RECORDS)
def test_dir_lists_the_fields_of_a_record(name):
    readers = {attribute for attribute in dir(native) if re.fullmatch(f"{name}_.*_get", attribute)}
    assert len(RECORDS) == 9 and readers
    assert readers <= {f"{name}_{field}_get" for field in dir(RECORDS[name]())}


def test_the_stub_has_exactly_the_names_of_the_module():
    tree = ast.parse(Path(native.__file__).with_suffix(".pyi").read_text())
    stubbed = [node.target.id if isinstance(node, ast.AnnAssign) else node.name for node in tree.body
               if isinstance(node, (ast.AnnAssign, ast.ClassDef, ast.FunctionDef))]
    public = [name for name in stubbed if not name.startswith("_")]
    assert sorted(public) == sorted(name for name in vars(native) if not name.startswith("_"))
    assert set(public) >= {name for name in dir(_kestrum) if not name.startswith("_")}
    mentioned = {node.id for node in ast.walk(tree) if isinstance(node, ast.Name) and isinstance(node.ctx, ast.Load)}
    assert mentioned - set(stubbed) == {"Any", "bool", "float", "int", "numpy", "str"}


def test_docstrings_give_arguments_and_statuses():
    functions = {name: value for name, value in vars(native).items() if isinstance(value, types.FunctionType)}
    for name, function in functions.items():
        assert function.__doc__ or name.startswith("_"), name
        if re.match("VORL[A-Z]", name):
            for argument in inspect.signature(function).parameters:
                assert f":param {argument}: " in function.__doc__, (name, argument)
    assert "-2012, -2013, -2014: minimal lag along x, y, z" in native.VORLImageVariogram.__doc__
    assert "VORL_SUFFIX_FOR_VARIOGRAM" in native.VORLOMPImageVariogram.__doc__
    assert "-711 to -719" in native.VORLReadGrid.__doc__
    for record in RECORDS.values():
        fields = [field for field in vars(record).values() if isinstance(field, property)]
        assert record.__doc__ and all(field.__doc__ for field in fields)
