// The process's one lock that belongs to no layer above: the guard of the
// standard library's random numbers.
#include "spinlock.h"

SpinLock random_lock;
