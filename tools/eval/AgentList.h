// The live agents of this machine, as their agent files tell.
#pragma once

// Prints a line for each and a head line; returns the status of the process. Stale files stay.
int listAgents();
