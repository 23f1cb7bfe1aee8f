/*
 * A host in one file: makes a matching record of a monitor profile and a printer profile, and sends a few colours through it.
 *
 *     match_colour MONITOR.icc PRINTER.icc
 */
#include <stdio.h>

#include "ColourMatch/ColourMatch.h"

/* Reference RGB is linear: 0..65535 = full scale, the fourth word is padding. */
static const uint16_t kColours[][4] = {
    {0, 0, 0, 0}, {65535, 65535, 65535, 0}, {14135, 14135, 14135, 0}, {65535, 0, 0, 0}, {0, 30000, 3000, 0}, {9000, 4000, 2500, 0},
};
enum { kCount = sizeof kColours / sizeof kColours[0] };

static void PrintRefusal(OSErr status) {
    char text[1024] = "no reason is known";
    CFStringRef refusal = ICC_CopyLastRefusal();
    if (refusal) {
        CFStringGetCString(refusal, text, sizeof text, kCFStringEncodingUTF8);
        CFRelease(refusal);
    }
    fprintf(stderr, "match_colour: %s (status %d)\n", text, status);
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: match_colour MONITOR.icc PRINTER.icc\n");
        return 2;
    }
    MatchingChoice choice = {.monitor = {.path = argv[1]}, .printer = {.path = argv[2]}};
    OSErr status = kStatusDone;
    MatchingData* record = CreateMatchingData(&choice, &status);
    if (!record) {
        PrintRefusal(status);
        return 1;
    }

    uint16_t monitor[kCount][4] = {{0}}, predicted[kCount][4] = {{0}}, proof[kCount][4] = {{0}}, ink[kCount][4] = {{0}};
    uint8_t outOfMonitor[kCount], outOfPrinter[kCount];
    status = RecordMonitorMatch16(record, kColours[0], monitor[0], kCount);
    if (!status) status = RecordMonitorPredict16(record, monitor[0], predicted[0], kCount);
    if (!status) status = RecordMonitorGamut(record, kColours[0], outOfMonitor, kCount);
    if (!status) status = RecordPrinterMatch16(record, kColours[0], ink[0], kCount);
    if (!status) status = RecordPrinterGamut(record, kColours[0], outOfPrinter, kCount);
    if (!status) status = RecordSoftProofMatch16(record, kColours[0], proof[0], kCount);
    DisposeMatchingData(record);
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
