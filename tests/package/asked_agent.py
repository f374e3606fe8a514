"""An agent that runs another agent's script and a program that asks it, and ends as that does."""

import subprocess
import sys

execfile(sys.argv[1])
sys.exit(subprocess.call(sys.argv[2:]))
