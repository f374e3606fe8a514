#include <kelpy/core/PyHooks.h>

PyObject* newEntityHook_ = nullptr;
PyObject* newInstanceHook_ = nullptr;
PyObject* getitemHook_ = nullptr;
std::uint64_t attributeAccessorCount_ = 0;
