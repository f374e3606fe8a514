"""All tests pass under the address and undefined behaviour sanitizers."""

import sanitizers

NAME = "sanitizers-address"
PASS = "0 reports"
SECONDS = {"short": 0, "long": 900}
LONG_ONLY = True


def run(form):
    return sanitizers.tests("asan", ["-LE", "checks"])


def planted(form):
    return sanitizers.planted("asan", {
        "overrun": "AddressSanitizer: heap-buffer-overflow",
        "overflow": "runtime error: signed integer overflow"})
