/* The public header from a host in C11 and in C++17 (this file is compiled as both): types, calling
 * convention, and a recording that is written and counted. */
#include "tessel.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

static int failures = 0;

static void expect(bool fulfilled, const char *what)
{
    if (fulfilled) return;
    fprintf(stderr, "not so: %s\n", what);
    failures += 1;
}

static bool writeRecording(const char *path, uint64_t count)
{
    const double rates[2] = {1000.0, 2000.0};
    /* channel << 25 | dtime << 10 | nsync */
    const uint32_t words[4] = {0u << 25 | 100u << 10 | 1u, 1u << 25 | 200u << 10 | 1u,
                               1u << 25 | 200u << 10 | 2u, 1u << 31 | 63u << 25 | 1u};
    tessel_recording_params params;
    memset(&params, 0, sizeof params);
    params.size = sizeof params;
    params.measMode = 3;
    params.family = 1;
    params.numChannels = 2;
    params.baseResolution = 1;
    params.resolution = 4;
    params.syncRate = 1e6;
    params.acqTime = 1;
    params.inputRates = rates;
    tessel_recording *recording = tessel_recordingCreate(path, &params);
    return recording && tessel_recordingWrite(recording, words, count) && tessel_recordingClose(recording);
}

static void countRecording(const char *path)
{
    char text[65535];
    expect(!tessel_openFile("", NULL, 0) && tessel_lastError(NULL, 0) > 0, "no file, and a reason");
    expect(tessel_openFile(path, NULL, 0) && tessel_lastError(text, 1) == 0, "the file opens");
    closeDevice(0);
    snprintf(text, 8192, "%s", path);
    expect(getFileDevice(text), "the file opens the other way");
    const int64_t rows = getNumAllChans(NULL);
    expect(rows == 3, "rows are the sync and two inputs");
    expect(!tessel_setThreads(-1) && !tessel_setThreads(257) && tessel_setThreads(3), "threads are 0 to 256");
    uint64_t columns = 0, bytes = 0;
    expect(tessel_getResultShape(NULL, 8, NULL, &columns, &bytes) && columns == 32768 &&
               bytes == sizeof(uint32_t),
           "a histogram's shape is told");
    uint32_t *counts = (uint32_t *)calloc((size_t)rows * 32768, sizeof *counts);
    uint8_t finished = 0;
    expect(counts && getHistogram(NULL, 0, 1, 0, counts, &finished), "the run is accepted");
    expect(finished == 1, "a waiting call returns with the finished byte set");
    expect(counts && counts[32768 + 100] == 1 && counts[2 * 32768 + 200] == 2, "each event is in its bin");
    expect(getMeasDescription(text) && strstr(text, "\"NumRecs\":4"), "the run read four records");
    tessel_losses losses;
    memset(&losses, 0xFF, sizeof losses);
    losses.size = sizeof losses;
    expect(tessel_getLosses(NULL, &losses) && losses.verdict == TESSEL_CLEAN, "nothing of it was lost");
    losses.size = 0;
    expect(!tessel_getLosses(NULL, &losses), "losses without a size are refused");
    free(counts);
    closeDevice(1);
}

/* Events on the second input of the device with the id, of the two that writeRecording() may write. */
static uint32_t eventsOf(const char *id)
{
    char16_t wide[64] = {0};
    static uint32_t counts[3 * 32768];
    for (size_t i = 0; i < 63 && id[i]; ++i) wide[i] = (char16_t)id[i];
    getHistogram(wide, 0, 1, 0, counts, NULL);
    return tessel_lastError(NULL, 0) == 0 ? counts[2 * 32768 + 200] : 99;
}

/* Both have the serial number "0". */
static void countTwoOfOneName(const char *folder)
{
    char paths[2][4096], ids[2][64], known[8192];
    for (uint64_t i = 0; i < 2; ++i) {
        snprintf(known, sizeof known, "%.4000s.%d", folder, (int)i);
        mkdir(known, 0700);
        snprintf(paths[i], sizeof paths[i], "%.4000s/a.tgx", known);
        expect(writeRecording(paths[i], 2 + i), "a recording in a folder of its own");
        expect(tessel_openFile(paths[i], ids[i], sizeof ids[i]), "and it opens");
    }
    expect(strcmp(ids[0], "0@a.tgx") == 0 && strcmp(ids[1], "0@a.tgx#2") == 0, "each has an id of its own");
    expect(getDeviceIDs(known) && strcmp(known, "[\"0@a.tgx\",\"0@a.tgx#2\"]") == 0, "all ids are listed");
    expect(eventsOf(ids[0]) == 1 && eventsOf(ids[1]) == 2 && eventsOf(ids[0]) == 1, "each gives its own");
    snprintf(known, sizeof known, "%s", paths[1]);
    expect(getFileDevice(known) && strcmp(known, ids[0]) == 0, "here the id is as it ever was");
    closeDevice(1);
    for (int i = 0; i < 2; ++i) remove(paths[i]);
}

int main(int argc, char **argv)
{
    static const char16_t unknown[] = u"nobody";
    if (argc != 3) return 2;
    initAPI(argv[2]);
    setLogLevel(0, 0);
    expect(stopMeasure(unknown), "an unknown id is no error");
    expect(tessel_recordingClose(NULL), "closing nothing is accepted");
    expect(writeRecording(argv[1], 4), "the recording is written");
    countRecording(argv[1]);
    countTwoOfOneName(argv[1]);
    exitAPI();
    remove(argv[1]);
    return failures == 0 ? 0 : 1;
}
