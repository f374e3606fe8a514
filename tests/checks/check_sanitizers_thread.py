"""The tests with threads pass under the thread sanitizer."""

import sanitizers

NAME = "sanitizers-thread"
PASS = "0 reports"
SECONDS = {"short": 0, "long": 600}
LONG_ONLY = True


def run(form):
    return sanitizers.tests("tsan", ["-L", "^(kel|process|planted|stress|threads)$"])


def planted(form):
    return sanitizers.planted("tsan", {"race": "ThreadSanitizer: data race"})
