/* lttng_point.c - the provider of lttng_point.h, and a plain function around its event. */
#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "lttng_point.h"

int bench_lttng_enabled(void) { return lttng_ust_tracepoint_enabled(ovrmail_bench, record); }

void bench_lttng_record(const char* point, int result) {
    lttng_ust_tracepoint(ovrmail_bench, record, point, result);
}
