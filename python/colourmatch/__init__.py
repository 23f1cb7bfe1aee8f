"""Colour matching for design applications: reference RGB to a monitor and a printer and back, soft proofs, gamut tests, through ICC profiles.

>>> import colourmatch, numpy
>>> colourmatch.__version__
'2.5.0'
"""

from . import settings
from ._colours import D50, D65, delta_e_1976, delta_e_1994, delta_e_2000, delta_e_cmc, lab_to_xyz, xyz_to_lab, xyz_to_yxy, yxy_to_xyz
from ._errors import ColourMatchError, ProfileError
from ._matcher import Matcher, ViewingConditions
from ._native import lib as _lib
from ._pictures import reference_from_image
from ._profiles import ProfileInfo, inspect, profiles

_number = _lib.CMSGetVersion()
__version__ = f"{_number >> 16}.{_number >> 8 & 255}.{_number & 255}"
__all__ = [
    "ColourMatchError", "D50", "D65", "Matcher", "ProfileError", "ProfileInfo", "ViewingConditions", "delta_e_1976", "delta_e_1994", "delta_e_2000",
    "delta_e_cmc", "inspect", "lab_to_xyz", "profiles", "reference_from_image", "settings", "xyz_to_lab", "xyz_to_yxy", "yxy_to_xyz",
]
