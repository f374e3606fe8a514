"""The types of libhome.so, which lies beside this: home.Heater is the class of Home::Heater."""

import os

import Kel

Kel.load(os.path.join(os.path.dirname(os.path.abspath(__file__)), "libhome.so"))
Kel.Schema.install(__name__, "Home")
