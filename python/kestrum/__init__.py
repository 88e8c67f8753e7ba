"""Geostatistics on regular three-dimensional grids.

The names are those of the C interface; kestrum.native holds them, and the module _kestrum the plain functions.
"""

from .native import *
