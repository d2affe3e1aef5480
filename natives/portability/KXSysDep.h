#ifndef KX_SYSDEP_H
#define KX_SYSDEP_H

/// @file
/// Wall-clock readings for clients; plain C functions.

// Wall-clock readings for clients. Both read the system's real-time clock, so they follow any
// adjustment of it and are not monotonic.

#include <cstdint>

#include "KXExport.h"

extern "C" {

/// Stores in *@p uuidTime the 100-nanosecond intervals since 1582-10-15 00:00:00 UTC (the UUID
/// epoch), in steps of 10: the clock underneath counts microseconds. A null pointer is ignored.
KX_EXPORT void kx_get_system_time(uint64_t* uuidTime);

/// Milliseconds since 1970-01-01 00:00:00 UTC. The seconds and the milliseconds come from two
/// separate clock reads, so across a second boundary the result may be off by up to a second.
KX_EXPORT int64_t kx_timestamp(void);
}

#endif
