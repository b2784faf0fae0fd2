/*
 * tessel.h - drives time-tagging instruments for single-photon counting and turns their event stream,
 * live or recorded, into histograms, correlations, traces and files.
 *
 * The rhythm of a host: initAPI, pick a device (getFileDevice or getDevice), set parameters, measure,
 * closeDevice, exitAPI.
 *
 * What holds for every function:
 *  - Plain C linkage. No exception leaves the library; a failure inside is one ERR line in the log.
 *  - Texts are NUL-terminated UTF-8 (`const char *`), device ids of measurement calls UTF-16
 *    (`const char16_t *`). A null text counts as empty. A null result pointer is not written.
 *  - `id` null or empty: the current device. Otherwise the device with exactly this id becomes the current
 *    one; an id that matches nothing makes "no device" the current one, on which every call runs on and
 *    finds nothing open.
 *  - A bool result tells that the request was accepted or carried out. A run that fails on its way tells so
 *    in the log and in "StopReason" of getMeasDescription(), never in the result of the call.
 *  - Times are picoseconds and acquisition times milliseconds, unless said otherwise.
 *  - Result memory belongs to the caller. The library writes to it until the finished byte is 1, which is
 *    its last write, and doesn't know its size: give what is asked for.
 *  - Calls for different devices may come from different threads. Parameters of a device must not be
 *    changed while a run on it is active.
 */
#ifndef TESSEL_H
#define TESSEL_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#else
#include <uchar.h>
#endif

#if defined(__GNUC__)
#define TESSEL_API __attribute__((visibility("default")))
#else
#define TESSEL_API
#endif

/* ---------------------------------------------------------------------------------------------- lifecycle
 * Devices are recorded files opened with getFileDevice(). */

/* Starts the library: reads the settings from `systemIniPath` (no file there is no error: the initial
 * settings hold), starts the log. A second call is a restart: it stops every run, closes every device and
 * starts anew. Always true. */
TESSEL_API bool initAPI(const char *systemIniPath);

/* Stops every run, closes every device and stops the log. Blocks until the runs have ended, some seconds at
 * most. */
TESSEL_API void exitAPI(void);

/* Writes the ids of all known devices as a JSON array of texts, in the order in which they were found or
 * opened. `buffer`: 8192 bytes. False only if the text doesn't fit; the buffer then holds a text that says
 * so. */
TESSEL_API bool getDeviceIDs(char *buffer);

/* Picks a device: `id` holds the wanted id, or an empty text for the first one that can be opened, and
 * receives the id of the device chosen; it needs room for that (8192 bytes hold any). True if the device
 * stands open; it is then the current one. False: there is no current device. */
TESSEL_API bool getDevice(char *id);

/* Opens a recorded file (extension tgx) as a device and makes it the current one. `path`: in, the file;
 * out, the id of the new device, at most 8192 bytes with its zero. A file that can't be read makes no
 * device: the log says why, and the result and id are those of whichever device was current before; so
 * the id tells success. A file device is open and initialised from the start. */
TESSEL_API bool getFileDevice(char *path);

/* Brings the current device into a measurement mode (0 histogramming, 2 T2, 3 T3) with a reference clock
 * source. A file device keeps the mode that its file tells. True if the device is initialised. */
TESSEL_API bool initDevice(int32_t measMode, int32_t refSource);

/* Closes the current device (`all` 0) or every device (`all` 1). A run on it is stopped and waited for. A
 * file device leaves the table of devices. */
TESSEL_API void closeDevice(uint8_t all);

/* ------------------------------------------------------------------------------------------------ logging
 * The log goes to standard output and to a day file in the folder Logs below the data path, as the settings
 * say. */

/* Posts "Ext.-Error: " and `text` as an error. */
TESSEL_API void logError(const char *text);

/* Posts `text` as a record from outside (EXT). */
TESSEL_API void logExternal(const char *text);

/* Switches the trace of a subsystem: 0 Api, 1 Config, 2 Device, 3 DataFile, 4 Manipulators. Warnings and
 * errors are posted whatever the switches say. Another `level` posts an error and changes nothing. */
TESSEL_API void setLogLevel(int32_t level, uint8_t on);

/* --------------------------------------------------------------------------------------------------- runs
 * A run is started by a measurement function. It ends at the file's end, on stopMeasure(), or on a failure,
 * and then writes 1 to the caller's finished byte. A new run on a device that is still busy stops the old
 * one first and waits for it. */

/* Asks the run on the device to stop and returns at once; what was read so far is counted. Always true. */
TESSEL_API bool stopMeasure(const char16_t *id);

/* Sets every element of the device's result to 0, also while a run goes on. Always true. */
TESSEL_API bool clearMeasure(const char16_t *id);

/* Tells the library that the host has taken new data: a sequence that waits goes on. Always 1. */
TESSEL_API uint8_t gotNewData(const char16_t *id);

/* Blocks until the run of a waiting sequence has new data (1), or the run has ended or doesn't wait (0). */
TESSEL_API uint8_t waitNewData(const char16_t *id);

/* Sequence of the current device: `mode` 0 none; 1 by time, `value` in seconds; 2 by count, `value` in
 * counts. Each step of a sequence starts from an empty result. `wait` 1: the run waits after each step until
 * gotNewData(). Another mode only stores `wait`. */
TESSEL_API void setSequenceMode(int32_t mode, uint8_t wait, double value);

/* Writes the last sync rate to `syncRate` and the rate of each input, in counts per second, to `rates`
 * (as many as the device has input channels). Returns the number of input channels of the current device. */
TESSEL_API int32_t getCountRates(int32_t *syncRate, int32_t *rates);

/* Number of rows of a result: sync + input channels + channels that manipulators made (the last in T2 and T3
 * only); 0 if the device is not initialised. */
TESSEL_API int64_t getNumAllChans(const char16_t *id);

/* ------------------------------------------------------------------------------------------- measurements
 * Arguments that all share: `acqTime` in ms, 0 = until stopped (a recorded file ends by itself and takes no
 * notice of it); `waitFinished` 1 = block until the run has ended; `save` 1 = record the raw stream (never
 * done on a recorded file); `finished` is set to 0 at the start and to 1, as the last write of the run, at
 * its end, and must stay valid until then. Null: no such byte. */

/* One histogram per channel. `data`: getNumAllChans() rows x NumBins columns of counts, row = channel
 * (0 sync, 1.. inputs, then manipulator channels), zeroed at the start and growing while the run goes on.
 * NumBins is 32768 in T3 (bin = dtime, in units of the resolution) and 65536 in T2 unless
 * setHistoT2NumBins() says otherwise. In T2, bin = (time - time of the last reference event) / bin width.
 * Always true. */
TESSEL_API bool getHistogram(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                             uint32_t *data, uint8_t *finished);

/* Columns of a T2 histogram. False, with an error in the log, in any other mode. No range check. */
TESSEL_API bool setHistoT2NumBins(const char16_t *id, uint64_t numBins);

/* Bin width of a T2 histogram in ps, initially 1. A run with a width of 0 ends at once with an error. */
TESSEL_API bool setHistoT2BinWidth(const char16_t *id, uint64_t binWidth);

/* Reference channel of a T2 histogram, initially 0 (sync). */
TESSEL_API bool setHistoT2RefChan(const char16_t *id, uint8_t refChan);

/* A scrolling count-rate history: per channel a row of bins of equal width over the last span of measured time,
 * newest at the right end. `data`: getNumAllChans() rows x numBins columns of counts (setTimeTraceNumBins()),
 * row = channel, zeroed at the start; complete bins are scrolled in about ten times a second of a replay, the
 * last one at the end. `firstBin`: the absolute number, counted from the start of the run, of the bin that
 * follows the last column, so that column c is the bin firstBin - numBins + c; null: not told. Time passes with
 * events and overflow records, not with markers. What a stream passes by in one leap of more than
 * the whole span is lost and shows as zero. Always true. */
TESSEL_API bool getTimeTrace(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                             uint32_t *data, uint64_t *firstBin, uint8_t *finished);

/* Columns of a time trace, initially 10000. A run with 0 or a negative number, or with more than 2^31 counts in
 * all, ends at once with an error in the log. Always true. */
TESSEL_API bool setTimeTraceNumBins(const char16_t *id, int32_t numBins);

/* Span of a time trace in seconds, initially 10. The bin width is the span through the number of bins, cut to
 * whole picoseconds; a run in which that is 0 ends at once with an error in the log. Always true. */
TESSEL_API bool setTimeTraceHistorySize(const char16_t *id, double seconds);

/* Pairs of events by two delays: x of the last event on channel X against y of the last one on channel Y, both
 * after a common reference, which is the last event on the start channel in T2 and the sync in T3. `data`:
 * numBinsY rows x numBinsX columns of counts (setHisto2dParams()), zeroed at the start and growing while the
 * run goes on. In T2 each event that follows counts the pair, until the next reference; in T3 the next event
 * counts it, once. bx = (x + slope * y) / width of x, by = y / width of y; what lies outside isn't counted.
 * Always true. */
TESSEL_API bool get2dHistogram(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                               uint32_t *data, uint8_t *finished);

/* Channels (0 sync, 1 to 64 inputs, then the chain's; start channel: T2 only), offsets in ps that are taken
 * from the times on X and on Y, bin widths in ps and numbers of bins. Initially 0, 1, 2, no offset, 100 x 100
 * bins of 1 ps. A run with a width or a number of 0, or with more than 2^31 bins, ends at once with an error in
 * the log. Always true. */
TESSEL_API bool setHisto2dParams(const char16_t *id, uint8_t startChan, uint8_t chanX, uint8_t chanY,
                                 uint64_t offsetX, uint64_t offsetY, uint64_t binWidthX, uint64_t binWidthY,
                                 uint64_t numBinsX, uint64_t numBinsY);

/* `totMode` 1: y is the time over threshold, Y minus X. `slope`: ps of x per ps of y, initially 0. Acts on the
 * current device, whatever `id` says. Always true. */
TESSEL_API bool setHisto2dTotMode(const char16_t *id, uint8_t totMode, double slope);

/* Pairs whose reference came less than `min` or more than `max` ps after that of the pair before are counted
 * with the offsets (ps) added to x and y and with `slope` added to the slope. Initially 0 and 1e12, no offset,
 * 0. Always true. */
TESSEL_API bool setHisto2dRecoveryTimingCorrection(const char16_t *id, uint64_t min, uint64_t max,
                                                   uint64_t offsetX, uint64_t offsetY, double slope);

/* -------------------------------------------------------------------------------------- the stream itself
 * A block is memory of the caller that a run fills with record words or decoded events. It and its count must
 * stay valid until the finished byte is 1; after that only rawGetBlock() and ufGetBlock() touch them. A reader
 * fetches the block with these two at any moment, also from another thread. A recorded file waits for its
 * reader: when the block is full, the run stands still until it is fetched, and nothing is lost; a stopped run
 * gives up after about five seconds without a reader. Live data can't wait: the block starts again with the
 * newest. With a `capacity` of 0 or no block the run goes on without one. `acqTime`, `waitFinished`, `save` and
 * `finished` are those of every measurement. With `waitFinished` 1 and a block that is too small for a recorded
 * file, the call returns only when another thread fetches the block or stops the run. */

/* Record words, as the instrument sends them. `block`: `capacity` words; `count`: how many of them are filled,
 * written while the run goes on. Always true. */
TESSEL_API bool rawMeasure(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                           uint32_t *block, uint64_t *count, uint64_t capacity, uint8_t *finished);

/* The same for a reader that fetches: returns at once. Always true. */
TESSEL_API bool rawStartBlock(const char16_t *id, uint32_t acqTime, uint8_t save, uint32_t *block,
                              uint64_t capacity, uint8_t *finished);

/* Moves what stands in the block to `words` (room for `capacity`) and its number to `count`, which stays as it
 * is if there is nothing. Always true. */
TESSEL_API bool rawGetBlock(const char16_t *id, uint32_t *words, uint64_t *count);

/* Decoded events, behind the last stage of the chain. `times` and `channels`: `capacity` elements each;
 * `count`: how many are filled, written while the run goes on. Times are ps in T2; in T3 sync number << 15 |
 * dtime. Channels: 0 sync (T2), 1 to 64 inputs, above them the chain's channels, 129 to 143 markers, 255 an
 * overflow of the time tag, whose time tells how far the stream has come. Either array may be null. Always
 * true. */
TESSEL_API bool ufMeasure(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                          uint64_t *times, uint8_t *channels, uint64_t *count, uint64_t capacity,
                          uint8_t *finished);

/* The same for a reader that fetches: returns at once. Always true. */
TESSEL_API bool ufStartBlock(const char16_t *id, uint32_t acqTime, uint8_t save, uint64_t *times,
                             uint8_t *channels, uint64_t capacity, uint8_t *finished);

/* Moves the events that stand in the block to `times` and `channels` (room for `capacity` each) and their
 * number to `count`, which stays as it is if there is nothing. Always true. */
TESSEL_API bool ufGetBlock(const char16_t *id, uint64_t *times, uint8_t *channels, uint64_t *count);

/* Runs the stream without a result, to record it (`save` 1). Always true. */
TESSEL_API bool exportStreamMeasure(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                                    uint8_t *finished);

/* Picks the times of one channel out of `count` events, in their order, into `result` (room for as many), and
 * writes their number to `count`. Channels from 128 on, markers and overflows, give none. Needs no device.
 * Always true. */
TESSEL_API bool getTimesFromChannelUF(const uint8_t *channels, const uint64_t *times, uint64_t *result,
                                      int32_t channel, uint64_t *count);

/* Correlation of two channels, T2 and T3: how often an event of one follows an event of the other at each lag.
 * `chan1`, `chan2`: channel numbers as the rows of getHistogram(); twice the same gives an autocorrelation.
 * Windows and lags are picoseconds, rounded to whole ones; a negative lag or what is no number counts as 0.
 * Three ways of counting:
 *
 *  - g2: pairs in linear bins, in both directions, as in a Hanbury Brown-Twiss experiment. Bin k holds lags
 *    from k x width to below (k + 1) x width; pairs at lag 0 count in bin 0 of both directions.
 *  - FCS: pairs in logarithmic bins, as in fluorescence correlation spectroscopy, of chan1 with itself, of both
 *    with each other (the mean of the two directions), and of chan2 with itself. Bin k holds lags above its
 *    lower and up to its upper end.
 *  - FFCS: the same with lags from the lower end on to below the upper end.
 *
 * FCS and FFCS begin to count once the longest lag has passed. Events are counted in the order in which they
 * come; one that comes after a later one of the other channel makes no pair with that.
 *
 * g2: M = window / binWidth bins a direction, cut to whole ones, at most 10,000,000. `binWidth` is brought into
 * the range from the device's resolution to 1e9 ps. `normalize` 1: counts are divided by those that two
 * independent streams of the same rates would give, so uncorrelated light is at 1:
 * g2(lag) = pairs x T / (n1 x n2 x width) with n the events of each channel and T the time measured; 0: pairs.
 */
TESSEL_API bool setG2Params(const char16_t *id, uint64_t chan1, uint64_t chan2, double window, double binWidth,
                            uint8_t normalize);

/* FCS: `steps` logarithmic bins (at most 1,000,000) from `minLag`, at least the base resolution, to `maxLag`.
 * `numPoints` receives the number of points of a curve, about `steps`; 0, and no curves, if maxLag isn't above
 * minLag. G(lag) = pairs x T / (n1 x n2 x width) - 1, so uncorrelated light is at 0. */
TESSEL_API bool setFCSParams(const char16_t *id, uint64_t chan1, uint64_t chan2, uint64_t *numPoints,
                             double minLag, double maxLag, uint64_t steps);

/* FFCS, the same parameters. */
TESSEL_API bool setFFCSParams(const char16_t *id, uint64_t chan1, uint64_t chan2, uint64_t *numPoints,
                              double minLag, double maxLag, uint64_t steps);

/* Measures what the last of the three functions above has set; initially g2 of channels 1 and 2, window 1e6 ps,
 * bins of 100 ps, normalised. `x` receives the lags in seconds before the run starts, `y` is written again and
 * again while the run goes on and for the whole stream before the finished byte.
 *  - g2: x and y hold 2 x M doubles, bin centres ascending: y[M + k] pairs in which chan1 follows chan2 at bin
 *    k, y[M - 1 - k] those in which chan2 follows chan1.
 *  - FCS, FFCS: x holds numPoints doubles, y 3 x (numPoints + 1): from y[0] the autocorrelation of chan1, from
 *    y[numPoints + 1] the cross-correlation, from y[2 x (numPoints + 1)] the autocorrelation of chan2; the last
 *    element of each third is not used.
 * Until the first event is counted y stays as it is; where a channel has no events what is divided by its
 * number is infinite or no number. `acqTime` below 0 counts as the longest. Always true. */
TESSEL_API bool getCorrelation(const char16_t *id, int32_t acqTime, uint8_t waitFinished, uint8_t save,
                               double *y, double *x, uint8_t *finished);

/* ------------------------------------------------------------------------------------------- manipulators
 * Stages of the device's chain. Each sees the stream that the one before it leaves, in the order of adding,
 * and may make channels, which are numbered behind the input channels in that order. A chain stays on the
 * device from run to run. Channel numbers: 0 sync, 1 to 64 inputs, above them the chain's channels. */

/* A new event on one new channel whenever each of `numChans` member channels had an event within `window` ps
 * (rounded to whole ps; both ends count). Returns the number of the new channel; -1, with an error in the log,
 * if the stream would have more than 255 channels, as every addM function does.
 *   coincMode  0 sliding: every member event that finds the set within the window makes a coincidence;
 *              1 once: a coincidence uses its events up. Another value makes none.
 *   timeMode   the time of the new event: 0 of the earliest member, 1 of the last, 2 the mean of all. With 0
 *              and 2 the stream is held back by the window, so that it stays in order. Another value lets
 *              nothing through.
 *   keep       1: the other events stay in the stream. 0: only coincidences go on with timeMode 1 or coincMode
 *              1; sliding with timeMode 0 or 2 they don't, and of the members those that leave the window on
 *              an event of another channel.
 * With timeMode 2 a coincidence needs a pending event behind its place, or it is lost. In T3 the sync counts as
 * a member if it is the first one listed: every event tells of its sync. */
TESSEL_API int32_t addMCoincidence(const char16_t *id, const int32_t *chans, int32_t numChans, double window,
                                   uint32_t coincMode, uint32_t timeMode, uint8_t keep);

/* Copies the events of `numChans` channels onto one new channel. `keep` 1: the rest of the stream stays;
 * 0: only the merged channels and their copies go on. Returns the number of the new channel. */
TESSEL_API int32_t addMMerge(const char16_t *id, const int32_t *chans, int32_t numChans, uint8_t keep);

/* Shifts the events of one channel by `delay` ps (rounded, and held within +-2147483647 ps). `keep` 1: the
 * channel stays as it is and the delayed events come on a new one; 0: the delayed events come on the channel
 * itself, and the new channel stays empty. A delayed event comes out with the first event that isn't earlier;
 * what is held at the end of a run is lost. `id` is ignored: it works on the current device. Returns the number
 * of the new channel. */
TESSEL_API int32_t addMDelay(const char16_t *id, uint8_t chan, double delay, int8_t keep);

/* Gates `numGated` channels by the events of the channel `herald`: inside is what comes at least `delay` and at
 * most `delay` + `window` ps behind the last of these. `inverted` 1 lets through what is outside. `keep` 1: all
 * events stay and those that pass are copied to a new channel for each gated one; 0: the others are dropped. In
 * T3 a herald 0 means the sync. Returns the number of the first new channel, with `keep` 0 the first gated
 * channel. */
TESSEL_API int32_t addMHerald(const char16_t *id, uint8_t herald, const int32_t *gated, int32_t numGated,
                              int32_t delay, int32_t window, uint8_t inverted, uint8_t keep);

/* Merges `numChans` channels of the device `sourceId` (none: its channel 1) into the stream, each on a new
 * channel, in the order of the times in ps; `offset`, in ps, is added to the source's. The clocks of the two
 * devices are not compared. `start` 1: a measurement of this device (any but rawMeasure and rawStartBlock)
 * starts one of the source first, and stops one that is live there; 0: the host starts it, with ufStartBlock(),
 * whose block then feeds this stage. An event of this device waits until the source has come as far; what
 * follows the source's last event is dropped. In T3 an imported event stands with its sync number as its time.
 * A measurement fails, with an error in the log, if its source is not there, has no events to give for ten
 * seconds, or needs the events of this device itself. Returns the number of the first new channel. */
TESSEL_API int32_t addMImportStream(const char16_t *id, const char16_t *sourceId, uint8_t start,
                                    const int32_t *chans, int32_t numChans, int32_t offset);

/* Counts the events of every channel, for getMCountRates(); the stream stays as it is. `window`: ps, at most
 * 2147483647, the least time over which a rate is taken. Returns the index of the stage. */
TESSEL_API int32_t addMCountRate(const char16_t *id, double window);

/* Rates of a count rate stage at `index`, in counts per second. `rates`: getNumAllChans() elements; 0 for a
 * channel that comes later in the chain. In T3 rates[0] is the sync rate. False: there is no such stage (one of
 * another kind is an error in the log), or it has not seen a run. */
TESSEL_API bool getMCountRates(const char16_t *id, int32_t index, uint32_t *rates);

/* Lets only events pass whose time since the start of the run is from `from` to `to` ps, both inside. */
TESSEL_API void addMSubStream(const char16_t *id, uint64_t from, uint64_t to);

/* Ends the stage at `index` (position in the chain, from 0). Its record stays, so that the numbers of later
 * stages don't change; a chain with an ended stage can't run: clearManis() removes all. A live run goes on to
 * its end, and what comes to the ended stage is dropped. getNumAllChans() falls by one for each call, with
 * clearManis() for each stage, whatever channels the stage made, until a stage is added. */
TESSEL_API void deleteMani(const char16_t *id, uint32_t index);

/* Removes all stages. */
TESSEL_API void clearManis(const char16_t *id);

/* --------------------------------------------------------------------------------------------- data files
 * Tags of the caller's own, for the header of a recording. They belong to the current device and stay until
 * clearTags(). `name`: at most 31 bytes are kept. `idx`: index of the tag, 0xFFFFFFFF for none. */

TESSEL_API void addIntTag(const char *name, int64_t value, uint32_t idx);
TESSEL_API void addDblTag(const char *name, double value, uint32_t idx);
TESSEL_API void addBoolTag(const char *name, bool value, uint32_t idx);
TESSEL_API void addEmptyTag(const char *name, uint32_t idx);
TESSEL_API void addStringTag(const char *name, const char *text, uint32_t idx);
TESSEL_API void addWStringTag(const char *name, const char16_t *text, uint32_t idx);
/* `count` doubles. */
TESSEL_API void addFloatArrayTag(const char *name, const double *values, uint64_t count, uint32_t idx);
/* The first `count` bytes reach the file, but 8 x `count` bytes are read from `bytes`. */
TESSEL_API void addBBTag(const char *name, const uint8_t *bytes, uint64_t count, uint32_t idx);
TESSEL_API void clearTags(void);

/* Folder and name of the next recording. A path without a folder keeps the folder; an empty name means
 * default.tgx. A recording never overwrites a file: a name that is taken gets a number behind it. */
TESSEL_API void setTGXFilePath(const char *path);

/* Sub-mode of the measurement, kept for the header of a recording. */
TESSEL_API void setMeasSubMode(int32_t value);

/* -------------------------------------------------------------------------------------------------- texts
 * State of the current device as JSON. `buffer`: 65535 bytes each. False: the buffer holds a text that says
 * what was wrong. */

/* Everything that is known of the device: model, channels, mode, resolution and parameters. */
TESSEL_API bool getDeviceConfig(char *buffer);

/* The last run: AcqTime (ms), AveSyncRate (Hz), AveSyncPeriod (s), StopReason (text), StopAfter,
 * WarningsFlag, NumRecs (records read). */
TESSEL_API bool getMeasDescription(char *buffer);

/* The chain: {"ManisCfg": [{"Index", "Type", "Channels": [{"Channel": n}, ...]}, ...]}. */
TESSEL_API bool getManisConfig(char *buffer);

/* ----------------------------------------------------------------------------------- what went wrong, told
 * For hosts that want to know at once what else stands in the log alone. */

/* Opens a recorded file as a device and makes it the current one. `id` receives the id of the new device
 * and has room for `capacity` bytes; null: not wanted. False: nothing was opened, because the file can't be
 * read or the id with its zero has no room, and the device that was current stays so.
 * A file that can be read opens, though it be no recording: tessel_lastError() tells what was wrong with
 * it. */
TESSEL_API bool tessel_openFile(const char *path, char *id, uint64_t capacity);

/* The last ERR line that the calling thread's last call logged, without time and tag; an empty text and 0
 * if it logged none. Writes at most `capacity` bytes, the zero included, and returns the length of the
 * whole text, at most 4096. Each call of another function of this header forgets the line. Errors of a run
 * come from threads of its own, which go on after the call: they are in the log, and "StopReason" of
 * getMeasDescription() tells. Works before initAPI() and with the log off. */
TESSEL_API int32_t tessel_lastError(char *text, uint64_t capacity);

/* -------------------------------------------------------------------------- recordings made by the caller
 * For simulations, converters and tests: writes a data file from record words of the caller's own. */

typedef struct tessel_recording tessel_recording;

typedef struct tessel_recording_params
{
    size_t size;              /* sizeof(tessel_recording_params), set by the caller */
    int32_t measMode;         /* 2 T2, 3 T3 */
    int32_t family;           /* record family: 0 ZP, 1 CD, 2 SV40, 3 LM70, 4 CD90 */
    int32_t numChannels;      /* input channels, 1 to 64 */
    double baseResolution;    /* ps, the unit of a T2 time tag; whole picoseconds, 1 to 1e12 */
    double resolution;        /* ps, the unit of a T3 dtime; whole picoseconds, 1 to 1e12; not used in T2 */
    double syncRate;          /* Hz, at most 2147483647; T3: at least 1e-6, and a replay goes by its period */
    int32_t acqTime;          /* ms, not negative */
    const double *inputRates; /* counts per second, numChannels of them, each at most 2147483647; or null */
    const char *serial;       /* serial number, null or empty: "0" */
    const char *comment;      /* null or empty: no comment */
} tessel_recording_params;

/* Creates the file at `path` (an existing one is overwritten) and writes its header, with the custom tags of
 * the current device. Null, with an error in the log, if a parameter is out of range or the file can't be
 * written. */
TESSEL_API tessel_recording *tessel_recordingCreate(const char *path, const tessel_recording_params *params);

/* Appends `count` record words. False if the disc refuses them; the recording can still be closed. */
TESSEL_API bool tessel_recordingWrite(tessel_recording *recording, const uint32_t *words, uint64_t count);

/* Brings the number of records into the header, seals it and frees the recording. False if anything of the
 * file could not be written. Null is accepted. */
TESSEL_API bool tessel_recordingClose(tessel_recording *recording);

/* Writes the header tags of a recorded file as JSON: {"magic", "version", "dataStart" (file offset of the
 * first record), "fileSize", "tags": [{"name", "idx" (-1 none), "type", "value"}, ...]}. `needed` receives
 * the text's length with its zero; true if that is at most `size` and the text was written. False with
 * `needed` 0: the file can't be read. */
TESSEL_API bool tessel_getFileTags(const char *path, char *buffer, uint64_t size, uint64_t *needed);

#ifdef __cplusplus
}
#endif

#endif
