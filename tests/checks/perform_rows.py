"""Performs each row of rows.py so many times: perform_rows.py TIMES [--plant]"""

import ctypes
import gc
import sys

import rows


def main(times, planted):
    number = 0
    for _, _, function in rows.rows():
        number += 1
        for _ in range(times):
            try:
                function()
            except Exception:
                sys.exc_clear()
    if planted:
        for _ in range(10):
            ctypes.CDLL(None).malloc(100)
    gc.collect()
    print "ROWS %d" % number


if __name__ == "__main__":
    main(int(sys.argv[1]), "--plant" in sys.argv)
