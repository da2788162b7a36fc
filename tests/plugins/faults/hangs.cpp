#include <unistd.h>

#include "Fault.h"

FAULT(for (;;) pause();)
