// What happens to the activity lock at fork(2). The forking thread takes it, so that the child
// never sees state in the middle of a change of another thread; the parent releases it; the child
// owns it just if the forking thread owned it by itself. Handlers of other libraries run around
// this.
#pragma once

#include <kel/Export.h>

namespace Kel {

using AtForkHandler = void ( * )();

// Makes every later fork of the process run what this header tells. Only the first call does
// something. Throws ErrnoException.
KEL_API void initializeAtForkHandler();

// Prepare handlers run from the highest priority to the lowest, before the runtime takes the
// activity lock; parent and child handlers from the lowest to the highest, after the runtime let it
// go. Among equals the later registered is the outer one. Null handlers are allowed. Handlers run
// on the forking thread, must not throw, and stay for good. Calls initializeAtForkHandler.
KEL_API void registerAtForkHandler(
   AtForkHandler prepare, AtForkHandler parent, AtForkHandler child, unsigned priority );

// Takes the activity lock early for the next fork of this thread, which then releases it; a second
// call before the fork does nothing. If the thread owns it already, it is left to the thread. If no
// fork follows, the thread holds the lock and may release it by itself. Blocks; throws
// ErrnoException.
KEL_API void grabActivityLockBeforeFork();

// Leaves the activity lock alone in the next fork of this thread: in the child it is free, unless
// the forking thread owned it.
KEL_API void skipActivityLockForNextFork() noexcept;

} // namespace Kel
