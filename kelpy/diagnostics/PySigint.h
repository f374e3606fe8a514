// Ctrl-C ends the runtime's activity loop in order, before whatever handled the signal before.
#pragma once

// Installs the handler and keeps the one that stood. Once a process, at the module's entry. GIL.
void chainSigint();
