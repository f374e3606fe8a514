// What a program needs to talk to agents.
#pragma once

#include <kelpy/client/PyClient.h>
#include <kelpy/client/Sockets.h>
