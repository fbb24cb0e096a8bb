/* The cost of a local export called from C, for bench_calls.py to print beside the Python
 * layer's: each call timed on its own (p50, p99) and a batch of calls timed as a whole (mean).
 *
 *   zanth-bench-c-calls [CALLS]   prints "export p50_ns p99_ns mean_ns timer_ns" per export
 *
 * It links libzanth like any C host. Run it in a scratch folder: the library writes its log and
 * message files into the working directory as it loads. */

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "zanth.h"

static int64_t Now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (int64_t)t.tv_sec * 1000000000 + t.tv_nsec;
}

static int Compare(const void* a, const void* b) {
    int64_t x = *(const int64_t*)a, y = *(const int64_t*)b;
    return (x > y) - (x < y);
}

static char buffer[65537];

static int32_t Version(void) { return GetDLLVersion(buffer, 64); }
static int32_t Connected(void) { return GetConnectedControllers(buffer, 65536); }

static int Measure(const char* name, int32_t (*call)(void), long calls, int64_t* samples) {
    for (long i = 0; i < calls / 10; ++i) call(); /* warm up */
    for (long i = 0; i < calls; ++i) {
        int64_t start = Now();
        int32_t result = call();
        samples[i] = Now() - start;
        if (result != 0) {
            fprintf(stderr, "%s returned %d\n", name, (int)result);
            return 1;
        }
    }
    int64_t start = Now();
    for (long i = 0; i < calls; ++i) call();
    double mean = (double)(Now() - start) / (double)calls;
    /* What timing one call adds: two clock reads with nothing between. */
    int64_t timer = Now();
    for (long i = 0; i < calls; ++i) Now();
    double tick = (double)(Now() - timer) / (double)calls;
    qsort(samples, (size_t)calls, sizeof samples[0], Compare);
    printf("%s %lld %lld %.1f %.1f\n", name, (long long)samples[calls / 2],
           (long long)samples[calls * 99 / 100], mean, tick);
    return 0;
}

int main(int argc, char** argv) {
    long calls = argc > 1 ? strtol(argv[1], NULL, 10) : 200000;
    if (calls < 100) {
        fprintf(stderr, "usage: %s [CALLS >= 100]\n", argv[0]);
        return 2;
    }
    int64_t* samples = malloc((size_t)calls * sizeof *samples);
    if (samples == NULL) return 1;
    int failed = Measure("GetDLLVersion", Version, calls, samples) ||
                 Measure("GetConnectedControllers", Connected, calls, samples);
    free(samples);
    return failed;
}
