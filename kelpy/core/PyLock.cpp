#include <kelpy/core/PyLock.h>

constinit thread_local PyThreadState* Kel::Impl::anchoredState = nullptr;
