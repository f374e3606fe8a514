"""The example schema: importing it loads libacme.so. acme.Item is the class of Acme::Item."""

import Kel

Kel.load("acme")
Kel.Schema.install(__name__, "Acme")
