/*
 * A host in one file: builds matching data from a monitor profile and a printer profile, and sends a few colours through it.
 *
 *     match_colour MONITOR.icc PRINTER.icc
 */
#include <stdio.h>
#include <string.h>

#include "ColourMatch/ColourMatch.h"

/* A persistent reference to an existing file, or null. The caller disposes of it. */
static AliasHandle NewAliasForPath(const char* path) {
    AliasHandle alias = NULL;
    FSRef file;
    CFURLRef url = CFURLCreateFromFileSystemRepresentation(NULL, (const UInt8*)path, (CFIndex)strlen(path), FALSE);
    if (url && CFURLGetFSRef(url, &file)) FSNewAlias(NULL, &file, &alias);
    if (url) CFRelease(url);
    return alias;
}

/* Reference RGB is linear: 0..65535 = full scale, the fourth word is padding. */
static const uint16_t kColours[][4] = {
    {0, 0, 0, 0}, {65535, 65535, 65535, 0}, {14135, 14135, 14135, 0}, {65535, 0, 0, 0}, {0, 30000, 3000, 0}, {9000, 4000, 2500, 0},
};
enum { kCount = sizeof kColours / sizeof kColours[0] };

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: match_colour MONITOR.icc PRINTER.icc\n");
        return 2;
    }
    AliasHandle profiles[3] = {NewAliasForPath(argv[1]), NewAliasForPath(argv[2]), NULL};
    OSErr status = kStatusFileNotFound;
    MatchingData* data = profiles[0] && profiles[1] ? LoadMatchingData(profiles, 0, NULL, NULL, &status) : NULL;
    for (int i = 0; i < 2; ++i) {
        if (profiles[i]) DisposeHandle((Handle)profiles[i]);
    }
    if (!data) {
        fprintf(stderr, "match_colour: no matching data (status %d)\n", status);
        return 1;
    }
    SetMatchingData(data); /* ours no longer: the library keeps the reference until another record, or none, replaces it */

    uint16_t monitor[kCount][4] = {{0}}, predicted[kCount][4] = {{0}}, proof[kCount][4] = {{0}}, ink[kCount][4] = {{0}};
    uint8_t outOfMonitor[kCount], outOfPrinter[kCount];
    status = MonitorMatch16(kColours[0], monitor[0], kCount);
    if (!status) status = MonitorPredict16(monitor[0], predicted[0], kCount);
    if (!status) status = MonitorGamut(kColours[0], outOfMonitor, kCount);
    if (!status) status = PrinterMatch16(kColours[0], ink[0], kCount);
    if (!status) status = PrinterGamut(kColours[0], outOfPrinter, kCount);
    if (!status) status = SoftProofMatch16(kColours[0], proof[0], kCount);
    SetMatchingData(NULL);
    if (status) {
        fprintf(stderr, "match_colour: status %d\n", status);
        return 1;
    }

    printf("%-18s %-18s %-18s %-18s %-24s %s\n", "reference", "monitor", "back again", "proof", "printer", "out of gamut");
    for (int i = 0; i < kCount; ++i) {
        printf("%5u %5u %5u  %5u %5u %5u  %5u %5u %5u  %5u %5u %5u  %5u %5u %5u %5u  %s%s\n", kColours[i][0], kColours[i][1], kColours[i][2],
               monitor[i][0], monitor[i][1], monitor[i][2], predicted[i][0], predicted[i][1], predicted[i][2], proof[i][0], proof[i][1], proof[i][2],
               ink[i][0], ink[i][1], ink[i][2], ink[i][3], outOfMonitor[i] ? "monitor " : "", outOfPrinter[i] ? "printer" : "");
    }
    return 0;
}
