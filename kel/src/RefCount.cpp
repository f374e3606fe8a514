#include <kel/RefCount.h>

namespace Kel {

constinit std::atomic< bool > VFPtrInterface::threadSafePointers_{ false };

} // namespace Kel
