// Where agents announce themselves. No lock of this process: the files are locked by flock.
#pragma once

#include <kel/String.h>

namespace Kel {

class PyClient;

// As the environment says at this moment.
String agentDirectory();
// The file of the agent that the client is named after.
String agentFilePath( PyClient const& client );

} // namespace Kel
