#include "nox/diag/mutex.h"

namespace nox {

Mutex::Mutex() = default;
Mutex::~Mutex() = default;

void Mutex::Lock() { lock_.lock(); }
void Mutex::Unlock() { lock_.unlock(); }

}  // namespace nox
