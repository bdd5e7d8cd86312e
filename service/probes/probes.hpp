// SPDX-License-Identifier: Apache-2.0
//
// Probes for bpftrace, perf and SystemTap (USDT): a probe is one instruction that does nothing
// until a tracer attaches to it. Without the header of SystemTap there are none.
#pragma once

#ifdef AAA_USDT

#include <sys/sdt.h>

#define AAA_PROBE2(name, a, b)       DTRACE_PROBE2(aaad, name, a, b)
#define AAA_PROBE3(name, a, b, c)    DTRACE_PROBE3(aaad, name, a, b, c)
#define AAA_PROBE4(name, a, b, c, d) DTRACE_PROBE4(aaad, name, a, b, c, d)

#else

#define AAA_PROBE2(name, a, b)       (static_cast<void>(a), static_cast<void>(b))
#define AAA_PROBE3(name, a, b, c)    (AAA_PROBE2(name, a, b), static_cast<void>(c))
#define AAA_PROBE4(name, a, b, c, d) (AAA_PROBE3(name, a, b, c), static_cast<void>(d))

#endif
