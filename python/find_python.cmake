# Finds an interpreter that has its headers, and NumPy if there is a choice: the first one in PATH may be without either.
# Sets KESTRUM_PYTHON, and what the module needs to know of it: KESTRUM_PYTHON_INCLUDE, KESTRUM_PYTHON_SUFFIX,
# KESTRUM_PYTHON_SITE (the module directory, relative to the installation prefix).
# A string, since it may be a name: CMake would make a FILEPATH of the command line absolute.
set(KESTRUM_PYTHON "" CACHE STRING "Python interpreter with headers and NumPy; empty: look for one")

set(probe [[
import importlib.util, os, sys, sysconfig
include = sysconfig.get_path("include")
assert os.path.exists(os.path.join(include, "Python.h"))
assert len(sys.argv) > 1 or importlib.util.find_spec("numpy")
site = "lib/python%d.%d/%s" % (sys.version_info[:2] + (os.path.basename(sysconfig.get_path("platlib")),))
print(";".join([sys.executable, include, sysconfig.get_config_var("EXT_SUFFIX"), site]), end="")
]])

if(KESTRUM_PYTHON)
  set(candidates ${KESTRUM_PYTHON})
  set(named named)
else()
  set(candidates python3.11 python3 /usr/bin/python3)
endif()
foreach(candidate IN LISTS candidates)
  execute_process(COMMAND ${candidate} -c "${probe}" ${named}
    RESULT_VARIABLE result OUTPUT_VARIABLE answer ERROR_VARIABLE complaint)
  if(result EQUAL 0)
    list(POP_FRONT answer interpreter KESTRUM_PYTHON_INCLUDE KESTRUM_PYTHON_SUFFIX KESTRUM_PYTHON_SITE)
    set_property(CACHE KESTRUM_PYTHON PROPERTY VALUE ${interpreter})
    message(STATUS "Python module for ${KESTRUM_PYTHON}")
    return()
  endif()
endforeach()
message(FATAL_ERROR "No Python with headers and NumPy among: ${candidates}. Name one by -DKESTRUM_PYTHON=..., "
                    "or leave the module out by -DKESTRUM_BUILD_PYTHON=OFF.\n${complaint}")
