"""The schema of unusual shapes: importing it loads libodd.so. odd.Node is the class of Odd::Node."""

import Kel

Kel.load("odd")
Kel.Schema.install(__name__, "Odd")
