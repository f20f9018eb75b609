/* lttng_point.h - one LTTng-UST event with the fields of a trace record: point and result. */
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER ovrmail_bench

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "lttng_point.h"

#if !defined(BENCH_LTTNG_POINT_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define BENCH_LTTNG_POINT_H

#include <lttng/tracepoint.h>

LTTNG_UST_TRACEPOINT_EVENT(ovrmail_bench, record,
                           LTTNG_UST_TP_ARGS(const char*, point, int, result),
                           LTTNG_UST_TP_FIELDS(lttng_ust_field_string(point, point)
                                                   lttng_ust_field_integer(int, result, result)))

#endif

#include <lttng/tracepoint-event.h>
