#ifndef KESTRUM_PYTHON_CORE_BINDINGS_HPP
#define KESTRUM_PYTHON_CORE_BINDINGS_HPP

#include <pybind11/pybind11.h>

// One for each part of the engine.
namespace kestrum::python {

void BindModel(pybind11::module_& module);
void BindPlaceKriging(pybind11::module_& module);
void BindGridRuns(pybind11::module_& module);
void BindFiles(pybind11::module_& module);
void BindVariogram(pybind11::module_& module);
void BindImages(pybind11::module_& module);
void BindImageMaps(pybind11::module_& module);
void BindImagePairs(pybind11::module_& module);
void BindImageStatistics(pybind11::module_& module);

}  // namespace kestrum::python

#endif
