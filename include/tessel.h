/*
 * tessel.h - drives time-tagging instruments for single-photon counting and turns their event stream,
 * live or recorded, into histograms, correlations, traces and files.
 *
 * A host calls initAPI, picks a device (getFileDevice or getDevice), sets parameters, measures, and ends with
 * closeDevice and exitAPI.
 *
 * For every function:
 *  - Plain C linkage. No exception leaves the library. A failure inside is one ERR line in the log.
 *  - Texts are UTF-8 with a zero at the end (`const char *`). Device ids of measurement calls are UTF-16
 *    (`const char16_t *`). A null text counts as empty. A null result pointer is not written to.
 *  - `id`: null or empty means the current device. Any other id makes the device with exactly this id the
 *    current one. If there is none, "no device" becomes the current one: a run on it ends at once with an error
 *    in the log, and of the caller's memory only the finished byte (1) and a count (0) are written.
 *  - true means that the request was accepted or carried out. A run that fails later says so in the log and in
 *    "StopReason" of getMeasDescription(), never in the result of a call.
 *  - Times are picoseconds (ps) and acquisition times milliseconds (ms), unless stated otherwise.
 *  - Channel numbers: 0 sync, 1 to 64 inputs, above the inputs the channels that stages of the chain make.
 *    Markers are 129 to 143, an overflow of the time tag is 255; these two have no row in a result.
 *  - T2: each event has an absolute time. T3: each event has the number of its sync and the dtime, the time
 *    since that sync, in units of the resolution. A T3 stream has no events on the sync channel.
 *  - Result memory belongs to the caller. It must have the size that the function states, since the library
 *    can't check it, and must stay valid until the finished byte is 1: that byte is the library's last write.
 *  - Calls for different devices may come from different threads. Don't change parameters of a device while a
 *    run on it is active.
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
 * Devices are recorded files, opened with getFileDevice(), and instruments, found by getDeviceIDs() and
 * getDevice(). There are five families: ZP, CD, SV40, LM70, CD90. Each has a library of its own, loaded when it
 * is first looked for: ZPLib64.so, CDLib64.so, sv40lib64.so, LM70Lib.so, CD90Lib.so. It is looked for in the
 * absolute folders of the environment variable TESSEL_INSTRUMENT_PATH (with colons between them), and where
 * that isn't set, where the system's loader looks. A family without a library is passed over, with a line in
 * the log.
 *
 * An instrument that is lost during any call is closed, and is the current device no longer; its id stays, and
 * getDevice() opens it again once it is back. A call into an instrument blocks as long as its library takes.
 * Other devices go on meanwhile. */

/* Starts the library: reads the settings from the file `systemIniPath` and starts the log. If there is no such
 * file, the initial settings hold. A second call is a restart: it stops every run, closes every device and
 * starts anew. Always true. */
TESSEL_API bool initAPI(const char *systemIniPath);

/* Stops every run, closes every device and stops the log. Blocks until the runs have ended: some seconds, if
 * somebody still has to take what they have read. A run, or an instrument, whose library doesn't come back is
 * left to itself after ten seconds, with an error in the log. */
TESSEL_API void exitAPI(void);

/* Looks at every port of every instrument library, and writes the ids of all known devices as a JSON array of
 * texts, in the order in which they were found or opened. `buffer`: 8192 bytes. The id of an instrument is its
 * serial number; "ZP_Port 0 (busy)" is one that another program has. An instrument that was found once stays in
 * the list; one that is open stays open. False: the text doesn't fit, and the buffer says so. */
TESSEL_API bool getDeviceIDs(char *buffer);

/* Picks a device, opens it and makes it the current one. Where no device is known it looks for instruments
 * first. `id`: in, the wanted id, or an empty text for the first device that can be opened; out, the id of the
 * chosen device (8192 bytes hold any). True: the device is open. False: there is no such device, or it can't be
 * opened, and no device is current. */
TESSEL_API bool getDevice(char *id);

/* Opens a recorded file (extension tgx) as a device and makes it the current one. `path`: in, the file; out,
 * the id of the current device, at most 8192 bytes with its zero. A file device is open and initialised from
 * the start. A file that can't be read makes no device: the log says why, and the device that was current stays
 * so. The result is true all the same: only the id shows whether the file was opened. tessel_openFile() gives
 * a plain answer. The id is the serial number, "@" and the name of the file without its folder: a file that is
 * open already, or one of the same name in another folder, gets the same one, which then means the file that
 * was opened first, and the other only as long as it is the current device. tessel_openFile() gives each an id
 * of its own. */
TESSEL_API bool getFileDevice(char *path);

/* Brings the current device into a measurement mode (0 histogramming, 2 T2, 3 T3) with a reference clock
 * source (0 internal; the others are the instrument's numbers). Stops a run on an instrument, opens it if it is
 * closed, reads what it says of itself and sends it all parameters; one that it refuses is an error in the log
 * and changes nothing else. A file device keeps the mode and clock of its recording. True: the device is
 * initialised. */
TESSEL_API bool initDevice(int32_t measMode, int32_t refSource);

/* Closes the current device (`all` 0) or every device (`all` 1). Stops a run on it and blocks until the run has
 * ended; one that hangs in its instrument's library is given ten seconds, then the instrument is closed all the
 * same. The id of a file device means nothing after that; an instrument keeps its id and its parameters, and
 * a remote device (tessel_connect) all that it has. */
TESSEL_API void closeDevice(uint8_t all);

/* ------------------------------------------------------------------------------------------------ logging
 * The log goes to standard output and to a day file in the folder Logs below the data path, as the settings
 * say. */

/* Logs "Ext.-Error: " and `text` as an error (ERR). */
TESSEL_API void logError(const char *text);

/* Logs `text` as a line of the host (EXT). In all lines, control characters of a text from outside, line feeds
 * too, are shown as \xNN. */
TESSEL_API void logExternal(const char *text);

/* Switches the trace lines of a subsystem on (1) or off (0). `level`: 0 Api, 1 Config, 2 Device, 3 DataFile,
 * 4 Manipulators; another one is an error in the log and changes nothing. Warnings and errors are always
 * logged. */
TESSEL_API void setLogLevel(int32_t level, uint8_t on);

/* --------------------------------------------------------------------------------------------- parameters
 * Settings of an instrument, each of which goes to the instrument at once. For all of them:
 *  - A value outside the range of the instrument's family is forced into it, with a warning in the log unless
 *    the function says otherwise. "-" is a family without the setting.
 *  - True: the instrument has taken the value, and the library remembers it: initDevice() sends it again. A
 *    recorded file takes any without effect.
 *  - False: nothing has changed. The family or model hasn't got the setting (a warning in the log), the
 *    instrument lacks the feature or is in the wrong mode (no line), it refused (a line in the log), or there
 *    is no such device.
 *  - The call blocks while the instrument takes the value. Levels are in mV.
 * `channel`: an input from 0, or -1 for all inputs: one after the other, up to the first that refuses. */

/* Divider of the sync rate. ZP, CD, CD90 1 to 16; SV40, LM70 1 to 8. */
TESSEL_API bool setSyncDiv(const char16_t *id, int32_t divider);

/* How the sync input triggers: 0 at an edge, 1 as a constant-fraction discriminator (CFD). The levels of that
 * trigger are sent again. LM70, CD90. */
TESSEL_API bool setSyncTrigMode(const char16_t *id, int32_t mode);

/* Edge trigger of the sync. `level`: ZP, SV40, CD90 -1200 to 1200; LM70 -1500 to 1500; CD -. `edge`: 0 falling,
 * 1 rising. */
TESSEL_API bool setSyncEdgeTrig(const char16_t *id, int32_t level, int32_t edge);

/* CFD of the sync: discriminator level and level of the zero crossing.
 *   CD 0 to 1000, 0 to 40; SV40 (model "Sarvex 40 P") -1200 to 0, -40 to 0; LM70 -1500 to 0, -100 to 0;
 *   CD90 -1200 to 0, -100 to 0; ZP -. */
TESSEL_API bool setSyncCFD(const char16_t *id, int32_t discriminator, int32_t zeroCross);

/* Shift of the sync in ps, -99999 to 99999. */
TESSEL_API bool setSyncChannelOffset(const char16_t *id, int32_t offset);

/* Sync input on (1) or off (0). ZP, LM70, CD90. */
TESSEL_API bool setSyncChannelEnable(const char16_t *id, int32_t enable);

/* Dead time of the sync in ps, 800 to 160000; anything below 800 switches it off. ZP, LM70, CD90. */
TESSEL_API bool setSyncDeadTime(const char16_t *id, int32_t deadTime);

/* How an input triggers, as setSyncTrigMode(). LM70, CD90. */
TESSEL_API bool setInputTrigMode(const char16_t *id, int32_t channel, int32_t mode);

/* Edge trigger of an input, with the ranges of setSyncEdgeTrig(). */
TESSEL_API bool setInputEdgeTrig(const char16_t *id, int32_t channel, int32_t level, int32_t edge);

/* CFD of an input, with the ranges of setSyncCFD(). */
TESSEL_API bool setInputCFD(const char16_t *id, int32_t channel, int32_t discriminator, int32_t zeroCross);

/* Shift of an input in ps, -99999 to 99999. */
TESSEL_API bool setInputChannelOffset(const char16_t *id, int32_t channel, int32_t offset);

/* Input on (1) or off (0). */
TESSEL_API bool setInputChannelEnable(const char16_t *id, int32_t channel, int32_t enable);

/* Dead time of an input in ps. ZP, LM70, CD90: 800 to 160000, anything below switches it off. SV40: the nearest
 * of 24000, 44000, 66000, 88000, 112000, 135000, 160000, 180000. CD -. */
TESSEL_API bool setInputDeadTime(const char16_t *id, int32_t channel, int32_t deadTime);

/* Hysteresis of all inputs: 0 or 1, the instrument's code. ZP, LM70, CD90. */
TESSEL_API bool setInputHysteresis(const char16_t *id, int32_t code);

/* SV40 with the feature LowRes: 0 or 1, the instrument's code. Others count as the nearest, without a line. */
TESSEL_API bool setTimingMode(const char16_t *id, int32_t mode);

/* A histogram run stops when a bin reaches this count; 0: never. */
TESSEL_API bool setStopOverflow(const char16_t *id, uint32_t stopCount);

/* The resolution is 2^binning times the base resolution; from 0 to what the instrument offers. Histogramming,
 * T3. */
TESSEL_API bool setBinning(const char16_t *id, int32_t binning);

/* Offset of the bins of time in ps: 0 to 100000000, CD 0 to 500000. Histogramming, T3. */
TESSEL_API bool setOffset(const char16_t *id, int32_t offset);

/* Bins of a histogram: code 0 to 6 (ZP, CD), 5 (SV40), 9 (LM70), 7 (CD90); -1 the longest. In histogramming the
 * instrument says how many bins that are. False in T2 and T3, where the number of bins is set all the same: to
 * 1024 x 2^code in T2 (code at most 6), to 32768 in T3. */
TESSEL_API bool setHistoLength(const char16_t *id, int32_t lengthCode);

/* Empties the instrument's histograms. Histogramming. */
TESSEL_API bool clearHistMem(const char16_t *id);

/* What starts and stops a measurement, as the instrument's code: 0 the acquisition timer, 6 calls. A code above
 * 6 counts as 6, on SV40 above 3 as 3, on CD above 9 as 9, without a warning. CD refuses 4 to 6 and knows 7 to
 * 9 as 4 to 6; LM70 refuses 4 and 5. `startEdge`, `stopEdge`: 0 falling, 1 rising. */
TESSEL_API bool setMeasControl(const char16_t *id, int32_t control, int32_t startEdge, int32_t stopEdge);

/* Period of the trigger output in ns, 0 to 16777215. Others count as the nearest, without a warning. ZP, SV40,
 * LM70, CD90. */
TESSEL_API bool setTriggerOutput(const char16_t *id, int32_t period);

/* Edges of the four markers: 0 falling, 1 rising. Others count as the nearest, without a warning. T2, T3. */
TESSEL_API bool setMarkerEdges(const char16_t *id, int32_t edge1, int32_t edge2, int32_t edge3, int32_t edge4);

/* The four markers on (1) or off (0). Others count as the nearest, without a warning. T2, T3. */
TESSEL_API bool setMarkerEnable(const char16_t *id, int32_t enable1, int32_t enable2, int32_t enable3,
                                int32_t enable4);

/* Shortest time between two markers in units of the instrument: 0 to 25500, CD 0 to 524296. T2, T3. */
TESSEL_API bool setMarkerHoldoffTime(const char16_t *id, int32_t time);

/* Time in ms, 0 to 255, over which the instrument may put overflows of its time tag into one record. T2, T3;
 * ZP, LM70, CD90. */
TESSEL_API bool setOflCompression(const char16_t *id, int32_t holdTime);

/* ------------------------------------------------------------------------------------------- event filter
 * A filter in the instrument that thins the stream before it is read: a row filter for each row of channels (8,
 * on a CD90 whose model doesn't end in "S" 16), and a main filter after them. The masks have a bit for each
 * channel of the row: the first for those that the filter uses, the second for those that pass. What time
 * range, match count and inverse (0 or 1) do is the instrument's matter. ZP, CD90, and LM70 with the main
 * filter alone. Rows from 0 to 7, others count as the nearest. Results as for parameters, but nothing is sent
 * again by initDevice(). */

/* Main filter on (1) or off (0). */
TESSEL_API bool enableMainEventFilter(const char16_t *id, uint8_t enable);

/* Channels of a row that the main filter uses: 9 bits each; LM70, which has no rows, 8 in T3. */
TESSEL_API bool setMainEventFilterChannels(const char16_t *id, int32_t row, uint32_t mask1, uint32_t mask2);

/* `timeRange`: ps, 0 to 160000, CD90 0 to 32000. `matchCount`: 1 to 6. */
TESSEL_API bool setMainEventFilterParams(const char16_t *id, int32_t timeRange, int32_t matchCount,
                                         uint8_t inverse);

/* Filter of a row on (1) or off (0). ZP, CD90. */
TESSEL_API bool enableRowEventFilter(const char16_t *id, int32_t row, uint8_t enable);

/* Filter of a row, with the ranges of the main filter and masks of 8 bits. ZP, CD90. */
TESSEL_API bool setRowEventFilter(const char16_t *id, int32_t row, int32_t timeRange, int32_t matchCount,
                                  uint8_t inverse, uint32_t mask1, uint32_t mask2);

/* The filter's test mode on (1) or off (0). */
TESSEL_API bool setFilterTestMode(const char16_t *id, uint8_t testMode);

/* What passes the main filter, in counts per second: of the sync to `syncRate`, of each input to `rates` (as
 * many elements as the device has inputs). Unchanged if false, and on a recorded file. */
TESSEL_API bool getMainFilteredRates(const char16_t *id, int32_t *syncRate, int32_t *rates);

/* The same for the row filters; on LM70 what reaches the main filter. */
TESSEL_API bool getRowFilteredRates(const char16_t *id, int32_t *syncRate, int32_t *rates);

/* ------------------------------------------------------------------------------------------- White Rabbit
 * The White Rabbit core of a ZP or CD90 instrument, which aligns the clocks of instruments over an optical
 * link. Modes, status and calibration are the core's own numbers. Results as for parameters. A text that is
 * read is empty if the result is false, and on a recorded file; numbers then stay as they are. */

/* The core's MAC address as "00-1a-2b-3c-4d-5e". `mac`: 18 bytes. */
TESSEL_API bool WRabbitGetMAC(const char16_t *id, char *mac);

/* Twelve hexadecimal digits, with or without hyphens. False, with an error in the log: they aren't. */
TESSEL_API bool WRabbitSetMAC(const char16_t *id, const char *mac);

/* The core's boot script. `script`: 65536 bytes hold any. */
TESSEL_API bool WRabbitGetInitScript(const char16_t *id, char *script);
TESSEL_API bool WRabbitSetInitScript(const char16_t *id, const char *script);

/* Calibration of the optical transceivers: a text of which 80 bytes count, and three arrays of four elements
 * (null: all 0). */
TESSEL_API bool WRabbitSetSFPData(const char16_t *id, const char *text, int32_t *first, int32_t *second,
                                  int32_t *third);

/* Sends the calibration, with 0 as fourth element of each array, and gives back what the core made of it: a
 * core has nothing to read it with. `text`: 81 bytes, in and out. The arrays: four elements each, in and out.
 */
TESSEL_API bool WRabbitGetSFPData(const char16_t *id, char *text, int32_t *first, int32_t *second,
                                  int32_t *third);

/* Optical link on (1) or off (0). */
TESSEL_API bool WRabbitInitLink(const char16_t *id, int32_t on);

TESSEL_API bool WRabbitSetMode(const char16_t *id, int32_t first, int32_t second, int32_t third);

/* The core's time: seconds, and a part of a second in the core's units. */
TESSEL_API bool WRabbitSetTime(const char16_t *id, uint64_t seconds);
TESSEL_API bool WRabbitGetTime(const char16_t *id, uint64_t *seconds, uint32_t *subSecond);

TESSEL_API bool WRabbitGetStatus(const char16_t *id, int32_t *status);

/* Output of the core's terminal. `text`: 65536 bytes hold any. */
TESSEL_API bool WRabbitGetTermOutput(const char16_t *id, char *text);

/* --------------------------------------------------------------------------------------------------- runs
 * A measurement function starts a run. The run ends at the end of the file, by stopMeasure(), or on a failure,
 * and then writes 1 to the caller's finished byte. A device has one run at a time: a new one first stops the
 * one before and waits for its end. */

/* Asks the run on the device to stop and returns at once. The run ends within a second: what was read so far is
 * still counted, as far as the time goes, and the result is that of what was counted. A run with a block (raw,
 * uf) goes on until all that was read is fetched, or nobody fetches for five seconds. Always true. */
TESSEL_API bool stopMeasure(const char16_t *id);

/* Sets every element of the device's result to 0, also while a run goes on; stages drop what they hold back.
 * Does nothing to blocks (rawMeasure, ufMeasure). Always true. */
TESSEL_API bool clearMeasure(const char16_t *id);

/* The host has taken the new data: a sequence that waits for that goes on. Always 1. */
TESSEL_API uint8_t gotNewData(const char16_t *id);

/* Blocks until a step of a waiting sequence is published, and returns 1. Returns 0 when the run has ended.
 * Without a waiting sequence it doesn't block; it then returns 1 only in a run with a block of events
 * (ufMeasure) that got some since the last gotNewData(). */
TESSEL_API uint8_t waitNewData(const char16_t *id);

/* Makes the runs of the current device a sequence of steps, each of which is published and starts from an empty
 * result.
 *   mode   0 no sequence: the result grows from the start of the run to its end.
 *          1 by time: a step lasts `value` seconds of measured time.
 *          2 by count: a step ends when a bin holds `value` counts (histograms, g2), or when `value` more
 *            events have come (time trace, FCS, FFCS).
 *          Any other mode only stores `wait`.
 *   wait   1: after each step the run stands still until gotNewData(). 0: the next step begins at once, and the
 *          result of the step is gone; so a host that wants every step says 1.
 * With `wait` 1 a measurement call that blocks (`waitFinished` 1) returns only when another thread confirms
 * each step with gotNewData(), or stops the run. */
TESSEL_API void setSequenceMode(int32_t mode, uint8_t wait, double value);

/* Rates of the current device in counts per second: of the sync to `syncRate`, of each input to `rates` (as
 * many elements as the device has inputs, first input first). An instrument is asked for them, also during a
 * run; where it doesn't answer, and on a recorded file, they are the last that are known. Returns the number of
 * inputs. */
TESSEL_API int32_t getCountRates(int32_t *syncRate, int32_t *rates);

/* Number of rows of a result: 1 for the sync, 1 for each input and, in T2 and T3, 1 for each channel that the
 * chain makes. 0 if the device is not initialised. See deleteMani() for when it is too small. */
TESSEL_API int64_t getNumAllChans(const char16_t *id);

/* ------------------------------------------------------------------------------------------- measurements
 * Arguments that all share:
 *   acqTime        ms; 0: until stopped. A recorded file runs to its end, whatever acqTime is.
 *   waitFinished   1: the call blocks until the run has ended. On an instrument with acqTime 0 it doesn't.
 *   save           1: the raw stream is recorded. Never done on a recorded file.
 *   finished       a byte that is 0 from the start and 1 from the end of the run on. It must stay valid until
 *                  it is 1. Null: no such byte.
 * A row of a result is a channel: row 0 the sync, rows 1.. the inputs, then the channels of the chain. Element
 * (row, column) stands at row x columns + column. Results can be read while they grow. */

/* One histogram per channel. `data`: getNumAllChans() rows x NumBins columns of counts, set to 0 at the start.
 *  - T3: NumBins is 32768, and the bin is the dtime.
 *  - T2: NumBins is 65536 unless setHistoT2NumBins() was called, and the bin is the time since the last event
 *    on the reference channel through the bin width, cut to a whole number. Events before the first reference
 *    event are not counted. A reference event is counted against the reference before it.
 * A time beyond the last bin is not counted. Always true. */
TESSEL_API bool getHistogram(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                             uint32_t *data, uint8_t *finished);

/* Columns of a T2 histogram. False, with an error in the log, in any other mode. The number is not checked
 * here; a run with more than 2^31 elements in all ends at once with an error in the log. */
TESSEL_API bool setHistoT2NumBins(const char16_t *id, uint64_t numBins);

/* Bin width of a T2 histogram in ps, initially 1. A run with a width of 0 ends at once with an error in the
 * log. Always true. */
TESSEL_API bool setHistoT2BinWidth(const char16_t *id, uint64_t binWidth);

/* Reference channel of a T2 histogram, initially 0 (sync). Always true. */
TESSEL_API bool setHistoT2RefChan(const char16_t *id, uint8_t refChan);

/* Counts of each channel in time: a row of bins of equal width over the last span of measured time, the newest
 * at the right end. `data`: getNumAllChans() rows x numBins columns of counts (setTimeTraceNumBins()), set to 0
 * at the start. On a recorded file complete bins are scrolled in about ten times a second; the last, incomplete
 * one comes at the end of the run. `firstBin`: receives the number, counted from the start of the run, of the
 * bin after the last column, so column c is bin firstBin - numBins + c. Null: not written. Time passes with
 * events and overflows, not with markers. If the stream leaps by more than the whole span, bins that were not
 * published before are lost and show as 0. Always true. */
TESSEL_API bool getTimeTrace(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                             uint32_t *data, uint64_t *firstBin, uint8_t *finished);

/* Columns of a time trace, initially 10000. A run with 0 or a negative number, or with more than 2^31 elements
 * in all, ends at once with an error in the log. Always true. */
TESSEL_API bool setTimeTraceNumBins(const char16_t *id, int32_t numBins);

/* Span of a time trace in seconds, initially 10. The bin width is the span divided by the number of bins, cut
 * to whole ps. A run with a bin width of 0 ends at once with an error in the log. Always true. */
TESSEL_API bool setTimeTraceHistorySize(const char16_t *id, double seconds);

/* Pairs of events by two delays. x is the time of the last event on channel X after the reference, less
 * offsetX; y that of the last event on channel Y, less offsetY. The reference is the last event on the start
 * channel in T2, and the sync of the event in T3. `data`: numBinsY rows x numBinsX columns of counts
 * (setHisto2dParams()), set to 0 at the start; here a row is a bin of y, not a channel. Column (x + slope x y)
 * / binWidthX, row y / binWidthY, cut to whole numbers; a pair outside is not counted. T2: once x and y are
 * known, every further event counts the pair again, until the next reference. T3: the next event counts the
 * pair, once. Always true. */
TESSEL_API bool get2dHistogram(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                               uint32_t *data, uint8_t *finished);

/* Channel numbers of the reference (T2 only), of X and of Y; offsets in ps, subtracted from the times on X and
 * Y; bin widths in ps; numbers of bins. Initially channels 0, 1, 2, no offset, 100 x 100 bins of 1 ps. A run
 * with a width or a number of 0, or with more than 2^31 bins, ends at once with an error in the log. Always
 * true. */
TESSEL_API bool setHisto2dParams(const char16_t *id, uint8_t startChan, uint8_t chanX, uint8_t chanY,
                                 uint64_t offsetX, uint64_t offsetY, uint64_t binWidthX, uint64_t binWidthY,
                                 uint64_t numBinsX, uint64_t numBinsY);

/* `totMode` 1: time over threshold, y is the time on Y less the time on X. 0: both count from the reference.
 * `slope`: ps that are added to x per ps of y. Initially 0, 0. Acts on the current device, whatever `id` is.
 * Always true. */
TESSEL_API bool setHisto2dTotMode(const char16_t *id, uint8_t totMode, double slope);

/* Corrects pairs that come soon, or late, after the pair before: if the time between the references of the two
 * is below `min` or above `max` ps, the offsets (ps) are added to x and y, and `slope` to the slope. Initially
 * 0 and 1e12 ps, no offset, 0. Always true. */
TESSEL_API bool setHisto2dRecoveryTimingCorrection(const char16_t *id, uint64_t min, uint64_t max,
                                                   uint64_t offsetX, uint64_t offsetY, double slope);

/* -------------------------------------------------------------------------------------- the stream itself
 * A block is memory of the caller that a run fills with record words or decoded events. The block and its count
 * must stay valid until the finished byte is 1; after that only rawGetBlock() and ufGetBlock() touch them. The
 * host fetches the block with these two at any time, also from another thread, and so makes room.
 *  - Recorded file: without room in the block the run stands still until the block is fetched. Nothing is lost.
 *    A run that was stopped ends after five seconds in which nobody fetches.
 *  - Live data: without room the block starts again with the newest data, with a warning in the log.
 * `capacity` 0 or a null block: the run goes on without a block. With `waitFinished` 1 and a block that is too
 * small for the recording, the call returns only when another thread fetches the block or stops the run.
 * `acqTime`, `waitFinished`, `save` and `finished`: as for every measurement. */

/* Record words, as the instrument sends them. `block`: `capacity` words. `count`: how many of them are filled,
 * from 0 at the start. The run writes it. To make room the host calls rawGetBlock(), or sets the count to 0
 * while the run stands still. Always true. */
TESSEL_API bool rawMeasure(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                           uint32_t *block, uint64_t *count, uint64_t capacity, uint8_t *finished);

/* The same without a count: the host fetches with rawGetBlock(). Returns at once, always true. */
TESSEL_API bool rawStartBlock(const char16_t *id, uint32_t acqTime, uint8_t save, uint32_t *block,
                              uint64_t capacity, uint8_t *finished);

/* Moves the content of the block to `words` (room for `capacity`) and its number to `count`. If the block is
 * empty, `count` stays as it is: set it to 0 before. Without a device it is 0. Always true. */
TESSEL_API bool rawGetBlock(const char16_t *id, uint32_t *words, uint64_t *count);

/* Decoded events, as the last stage of the chain leaves them. `times` and `channels`: `capacity` elements each;
 * either may be null. `count`: how many are filled, as for rawMeasure(). Times: ps in T2, sync number x 32768 +
 * dtime in T3. Channels: as above, with markers (129 to 143) and overflows (255), whose time says how far the
 * stream has come. Always true. */
TESSEL_API bool ufMeasure(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                          uint64_t *times, uint8_t *channels, uint64_t *count, uint64_t capacity,
                          uint8_t *finished);

/* The same without a count: the host fetches with ufGetBlock(). Returns at once, always true. */
TESSEL_API bool ufStartBlock(const char16_t *id, uint32_t acqTime, uint8_t save, uint64_t *times,
                             uint8_t *channels, uint64_t capacity, uint8_t *finished);

/* Moves the events in the block to `times` and `channels` (room for `capacity` each) and their number to
 * `count`. If the block is empty, `count` stays as it is: set it to 0 before. Without a device it is 0. Always
 * true. */
TESSEL_API bool ufGetBlock(const char16_t *id, uint64_t *times, uint8_t *channels, uint64_t *count);

/* Runs the stream without a result, to record it (`save` 1). Always true. */
TESSEL_API bool exportStreamMeasure(const char16_t *id, uint32_t acqTime, uint8_t waitFinished, uint8_t save,
                                    uint8_t *finished);

/* Copies the times of the events on `channel`, in their order. `channels`, `times`: events, `*count` of them.
 * `result`: room for as many times; null: they are only counted. `count`: in, the number of events; out, the
 * number of times. Channels from 128 on (markers, overflows) give none. Needs no device. Always true. */
TESSEL_API bool getTimesFromChannelUF(const uint8_t *channels, const uint64_t *times, uint64_t *result,
                                      int32_t channel, uint64_t *count);

/* Correlation of two channels, T2 and T3: how often an event of one channel follows an event of the other at
 * each lag. `chan1`, `chan2`: channel numbers; twice the same gives an autocorrelation. Windows and lags are
 * ps, rounded to whole ones; what is negative or not a number counts as 0. There are three ways of counting:
 *
 *  - g2: pairs in linear bins, in both directions, as in a Hanbury Brown-Twiss experiment. Bin k holds the lags
 *    from k x width up to, but not including, (k + 1) x width. Pairs at lag 0 count in bin 0 of both
 *    directions.
 *  - FCS: pairs in logarithmic bins, as in fluorescence correlation spectroscopy: of chan1 with itself, of both
 *    with each other (the mean of the two directions), and of chan2 with itself. A bin holds the lags above its
 *    lower end, up to and including its upper end. The time per event grows with the events in the longest lag.
 *  - FFCS: as FCS, but a bin holds its lower end and not its upper one. The time per event grows with the
 *    number of bins; so it is the faster one for long lags and high rates.
 *
 * FCS and FFCS begin to count once the longest lag has passed. Events are counted in the order of the stream:
 * an event that stands after a later one of the other channel makes no pair with it. */

/* g2: `window` through `binWidth` gives M bins for each direction, cut to a whole number, at most 10,000,000.
 * `binWidth`: ps, at least the resolution of the device and at most 1e9. `normalize` 1: pairs are divided by
 * those that two independent streams of the same rates would give, so uncorrelated light is at 1:
 * g2(lag) = pairs x T / (n1 x n2 x binWidth), with n the events of each channel and T the time measured.
 * 0: pairs. Always true. */
TESSEL_API bool setG2Params(const char16_t *id, uint64_t chan1, uint64_t chan2, double window, double binWidth,
                            uint8_t normalize);

/* FCS: `steps` logarithmic bins (at most 1,000,000) from `minLag` to `maxLag`, both ps; minLag is at least the
 * base resolution. `numPoints` receives the number of points of a curve, about `steps`; 0, and no curves, if
 * maxLag isn't above minLag, or without a device. G(lag) = pairs x T / (n1 x n2 x bin width) - 1, so
 * uncorrelated light is at 0. Always true. */
TESSEL_API bool setFCSParams(const char16_t *id, uint64_t chan1, uint64_t chan2, uint64_t *numPoints,
                             double minLag, double maxLag, uint64_t steps);

/* FFCS, with the parameters of FCS. Always true. */
TESSEL_API bool setFFCSParams(const char16_t *id, uint64_t chan1, uint64_t chan2, uint64_t *numPoints,
                              double minLag, double maxLag, uint64_t steps);

/* Measures the correlation that the last of the three functions above has set; initially g2 of channels 1 and
 * 2, window 1e6 ps, bins of 100 ps, normalised. T of g2 is for each half the time between the first and the
 * last event of the later channel, so a channel that starts late makes a step at lag 0; FCS counts once the
 * longest lag has passed. tessel_getCorrelationCounts() gives what a normalisation without either needs.
 *   x   the lags in seconds, written before the run starts.
 *   y   the curve, written again and again during the run, and for the whole stream before the finished byte.
 *  - g2: x and y have 2 x M elements, bin centres in ascending order. y[M + k]: chan1 follows chan2, at bin k.
 *    y[M - 1 - k]: chan2 follows chan1.
 *  - FCS, FFCS: x has numPoints elements, y 3 x (numPoints + 1). From y[0] the autocorrelation of chan1, from
 *    y[numPoints + 1] the cross-correlation, from y[2 x (numPoints + 1)] the autocorrelation of chan2. The last
 *    element of each third is not used.
 * y is not set to 0 at the start: it stays as it is until the first event is counted. Where a channel has no
 * events, a normalised value is infinite or not a number. An `acqTime` below 0 counts as the longest. Always
 * true. */
TESSEL_API bool getCorrelation(const char16_t *id, int32_t acqTime, uint8_t waitFinished, uint8_t save,
                               double *y, double *x, uint8_t *finished);

/* FCS and FFCS, with `fromStart` 1: pairs count from the first event on, also in the time of the longest lag at
 * the start. Initially 0. Always true. */
TESSEL_API bool tessel_setCorrelationFromStart(const char16_t *id, uint8_t fromStart);

/* What a correlation has counted, for a normalisation of the caller's own. The caller sets `size`, `capacity`
 * and the arrays, each null or with room for `capacity` elements; the call sets the rest. */
typedef struct tessel_correlation_counts
{
    size_t size;       /* sizeof(tessel_correlation_counts) */
    uint64_t capacity; /* elements of each array; bins + 1 are needed */

    /* [bins] pairs.  g2: [0] chan1 is later (lags above 0), [1] chan2 is later; [2], [3] aren't written.
     * FCS, FFCS: [0] chan1 with itself, [1] both, chan1 is later, [2] both, chan2 is later, [3] chan2 with
     * itself. A bin k holds the lags from edges[k] to below edges[k + 1]; FCS: above edges[k] to edges[k + 1];
     * FFCS: exactly at an edge to either side. g2: a pair at equal times is in [0] and [1]. */
    uint64_t *pairs[4];
    uint64_t *edges; /* [bins + 1] ps */

    /* [bins + 1] for chan1 and chan2: how many events could be the later one, and the earlier one, of a pair
     * at the lag edges[k] in the time from the first event of the two channels to the last. FCS and FFCS from
     * the start; else, and after a clearMeasure(), all that were counted. */
    uint64_t *laterEvents[2], *earlierEvents[2];

    uint64_t bins;
    int32_t mode; /* 0 g2, 1 FCS, 2 FFCS */
    uint64_t chan1, chan2;
    uint64_t events[2];         /* counted on chan1 and chan2 */
    uint64_t first[2], last[2]; /* ps; of the events of each that were counted; 0: none */
    uint64_t selfPairs;         /* g2 of one channel: pairs of an event with itself in bin 0 of [0] and [1] */
} tessel_correlation_counts;

/* Counts of the correlation that runs on the device, or ran last. May wait for a block of events. False: there
 * is none yet, the struct is of another version, or the capacity is above 0 but too small; then `bins` says
 * how many there are. With capacity 0 no array is written. */
TESSEL_API bool tessel_getCorrelationCounts(const char16_t *id, tessel_correlation_counts *counts);

/* ------------------------------------------------------------------------------------------- manipulators
 * The chain of a device: stages, which events pass one after the other, in the order in which they were added,
 * before they are counted. A stage sees the stream that the stage before it leaves. A stage may make new
 * channels: they get the next numbers after the inputs, in the order of the chain. A chain stays on the device
 * from run to run. Add and remove stages between two runs.
 *
 * Every addM function that returns a channel number returns -1, with an error in the log, if the stream would
 * have more than 255 channels. A channel number that nothing uses is no error: it never has events. `keep`,
 * `inverted` and `start` are 0 or 1. */

/* Coincidence: a new event on one new channel whenever each of the `numChans` member channels `chans` had an
 * event within `window` ps (rounded to whole ps; exactly the window still counts). Returns the new channel.
 *
 *   coincMode  0 sliding: every member event that finds the set complete makes a coincidence, so an event can
 *              belong to several. 1 once: a coincidence uses its events up. Any other value makes none.
 *   timeMode   time of the new event: 0 first member, 1 last member, 2 mean of all members. Any other value
 *              lets nothing through. With 0 and 2 the stage holds events back for the window, so that the new
 *              event stands in its order in time.
 *   keep       what goes on to the next stage, beside the coincidences:
 *
 *     keep  timeMode  coincMode 0 (sliding)                   coincMode 1 (once)
 *     1     0, 1, 2   all events                              all events
 *     0     1         nothing else                            nothing else
 *     0     0, 2      (a); coincidences do NOT go on          (a); with timeMode 2 also events at the very
 *                                                             time of a coincidence
 *
 *     (a) member events that are still held back when an event of another channel comes and the oldest of them
 *         has left the window. What leaves it when a member event comes is dropped.
 *
 * So coincidences alone come with keep 0 and timeMode 1. "All events" includes markers and overflows; with keep
 * 0 these are dropped. Sliding with timeMode 2 loses a coincidence whose members all have the same time. A set
 * is looked for within one batch of the stream: members on both sides of a batch's end make no coincidence.
 * With timeMode 2 the events held back at the end of a run are lost. In T3 the sync (0) can be a member if it
 * is listed first: each other member event then brings the time of its sync. Listed elsewhere it is never seen,
 * and nothing coincides. */
TESSEL_API int32_t addMCoincidence(const char16_t *id, const int32_t *chans, int32_t numChans, double window,
                                   uint32_t coincMode, uint32_t timeMode, uint8_t keep);

/* Merge: copies the events of the `numChans` channels `chans` onto one new channel. `keep` 1: the whole stream
 * goes on, with the copies. 0: only the listed channels and the copies go on. Returns the new channel. */
TESSEL_API int32_t addMMerge(const char16_t *id, const int32_t *chans, int32_t numChans, uint8_t keep);

/* Delay: shifts the events of channel `chan` by `delay` ps (rounded; -2147483647 to 2147483647). `keep` 1: the
 * channel stays as it is, and the shifted events come on a new channel. 0: the shifted events come on `chan`,
 * and the new channel, which is made all the same, stays empty. A shifted event comes out with the first event
 * that isn't earlier, so the stream stays in order; with a negative delay it isn't in order. Events held back
 * at the end of a run are lost. `id` is ignored: the stage is added to the current device. Returns the new
 * channel. */
TESSEL_API int32_t addMDelay(const char16_t *id, uint8_t chan, double delay, int8_t keep);

/* Herald: gates the `numGated` channels `gated` by the events of the channel `herald`. An event is inside if it
 * comes at least `delay` and at most `delay` + `window` ps after the last herald event; before the first herald
 * event nothing is inside. `inverted` 0: what is inside passes. 1: what is outside passes. `keep` 1: all events
 * go on, and those that pass are also copied, to one new channel for each gated one. 0: gated events that don't
 * pass are dropped. In T3 a herald 0 means the sync of each event. A herald that is gated too is compared with
 * the herald before it (keep 1) or with itself (keep 0). Returns the first new channel; with keep 0 the first
 * gated channel. */
TESSEL_API int32_t addMHerald(const char16_t *id, uint8_t herald, const int32_t *gated, int32_t numGated,
                              int32_t delay, int32_t window, uint8_t inverted, uint8_t keep);

/* Import stream: merges the `numChans` channels `chans` of the device `sourceId` (none listed: its channel 1)
 * into this stream, each on a new channel, in order of time. `offset`: ps, added to the times of the source;
 * nothing else aligns the clocks of the two devices. Returns the first new channel.
 *   start  1: a measurement of this device (any but rawMeasure and rawStartBlock) first starts one of the
 *          source, and stops one that is live there. 0: the host starts it with ufStartBlock(), whose block
 *          then feeds this stage.
 * An event of this device waits until the source has come as far in time. Events of this device after the last
 * one of the source are dropped. In T3 an imported event has its sync number as its time, without dtime and
 * shift. The measurement fails, with an error in the log, if the source doesn't exist, has no events for ten
 * seconds, or itself needs the events of this device. */
TESSEL_API int32_t addMImportStream(const char16_t *id, const char16_t *sourceId, uint8_t start,
                                    const int32_t *chans, int32_t numChans, int32_t offset);

/* Count rate: counts the events of every channel for getMCountRates(). The stream stays as it is. `window`: ps,
 * at most 2147483647, the least time over which a rate is taken. Returns the index of the stage. */
TESSEL_API int32_t addMCountRate(const char16_t *id, double window);

/* The last rates of the count-rate stage at `index`, in counts per second. `rates`: getNumAllChans() elements,
 * 0 for channels that later stages make. In T3 rates[0] is the sync rate. False: there is no such stage, or it
 * has not been in a run; a stage of another kind is also an error in the log. */
TESSEL_API bool getMCountRates(const char16_t *id, int32_t index, uint32_t *rates);

/* Sub-stream: lets only events pass whose time since the start of the run is from `from` to `to` ps, both
 * included. Applies to all channels. */
TESSEL_API void addMSubStream(const char16_t *id, uint64_t from, uint64_t to);

/* Sort: puts the events of all channels in the order of time, where none comes more than `window` ps after a
 * later one; in T3 by whole syncs. It holds events back for the window, at most 4,194,304. An event that comes
 * too late for its place goes on at once: TESSEL_TEXT_LOSSES says how many. False, with an error in the log:
 * the chain takes no stage. */
TESSEL_API bool tessel_addMSort(const char16_t *id, uint64_t window);

/* Ends the stage at `index` (position in the chain, from 0; any other index does nothing) and blocks until it
 * has ended. The stage keeps its place, so that the numbers of later channels don't change. A live run goes on
 * to its end, and what comes to the ended stage is dropped. No run can start with an ended stage: clearManis()
 * removes it. Each call takes 1 off getNumAllChans(), whatever channels the stage made, until a stage is added;
 * so does clearManis() for each stage. */
TESSEL_API void deleteMani(const char16_t *id, uint32_t index);

/* Ends and removes all stages, and blocks until they have ended. */
TESSEL_API void clearManis(const char16_t *id);

/* --------------------------------------------------------------------------------------------- data files
 * Tags of the caller's own, for the header of a recording. They belong to the current device and stay until
 * clearTags(). The library copies names, texts and arrays. `name`: at most 31 bytes are kept. `idx`: index of
 * the tag, 0xFFFFFFFF for none. */

TESSEL_API void addIntTag(const char *name, int64_t value, uint32_t idx);
TESSEL_API void addDblTag(const char *name, double value, uint32_t idx);
TESSEL_API void addBoolTag(const char *name, bool value, uint32_t idx);
TESSEL_API void addEmptyTag(const char *name, uint32_t idx);
TESSEL_API void addStringTag(const char *name, const char *text, uint32_t idx);
TESSEL_API void addWStringTag(const char *name, const char16_t *text, uint32_t idx);
/* `values`: `count` elements. */
TESSEL_API void addFloatArrayTag(const char *name, const double *values, uint64_t count, uint32_t idx);
/* `bytes`: 8 x `count` bytes, all of which are read; the first `count` of them reach the file. */
TESSEL_API void addBBTag(const char *name, const uint8_t *bytes, uint64_t count, uint32_t idx);
TESSEL_API void clearTags(void);

/* Folder and name of the next recording. A path without a folder keeps the folder; an empty name means
 * default.tgx. A recording never overwrites a file: a name that exists gets a number. */
TESSEL_API void setTGXFilePath(const char *path);

/* Sub-mode of the measurement, kept for the header of a recording. */
TESSEL_API void setMeasSubMode(int32_t value);

/* -------------------------------------------------------------------------------------------------- texts
 * State of the current device as JSON. `buffer`: 65535 bytes each. False: the buffer says what was wrong. */

/* The device: model, channels, mode, resolution and all parameters. */
TESSEL_API bool getDeviceConfig(char *buffer);

/* The last run: AcqTime (ms), AveSyncRate (Hz), AveSyncPeriod (s), StopReason (text), StopAfter (elapsed time
 * as the instrument gives it), WarningsFlag, NumRecs (records read). */
TESSEL_API bool getMeasDescription(char *buffer);

/* The chain: {"ManisCfg": [{"Index", "Type", "Channels": [{"Channel": n}, ...]}, ...]}. */
TESSEL_API bool getManisConfig(char *buffer);

/* ---------------------------------------------------------------------------- parameters as an INI text
 * Each key of the text calls its parameter's function, in the order of the text, for the current device; a key
 * that isn't there changes nothing. Only an initialised instrument takes a text, a file or a remote device
 * none. docs/ini.md has the keys. A value that is refused, an unknown key and too few numbers are told
 * in the log; the rest goes on. */

TESSEL_API void setIniConfig(const char *text);

/* A regular file of at most 16 MiB. True: the last parameter of the text was set, whatever became of those
 * before it. */
TESSEL_API bool loadIniConfig(const char *path);

/* --------------------------------------------------------------------------------- texts of any length
 * The same texts for hosts that ask how long they are: a long comment or thousands of channels don't fit in the
 * buffers above. */

enum tessel_text {
    TESSEL_TEXT_DEVICE = 0,      /* as getDeviceConfig() */
    TESSEL_TEXT_DESCRIPTION = 1, /* as getMeasDescription() */
    TESSEL_TEXT_CHAIN = 2,       /* as getManisConfig() */
    TESSEL_TEXT_DEVICE_IDS = 3,  /* as getDeviceIDs(); of all devices, whatever `id` is */

    /* What can be set on an initialised device: {"family", "features": [name, ...], "settings": [{"key"
     * ("sync.level", "ch1.level"), "field" (its key in getDeviceConfig), "operation" (the settings of one
     * operation are sent together, in this order), "channel" (from 0; of inputs only), "unit" ("mV", "ps",
     * "ns", "ms" or ""), "min", "max" (not there: the instrument decides), "inUse" (false: of the other trigger
     * mode), "choices" (not there, or the texts of 0, 1, ...), "value"}, ...]}. */
    TESSEL_TEXT_SETTINGS = 4,

    /* How the last look for each instrument library ended, whatever `id` is: [{"family", "file", "places"
     * (where it was looked for; empty: not yet), "loaded", "path", "missing" (an operation that it lacks),
     * "why" (it isn't loaded), "version"}, ...]. What there is none of is null. */
    TESSEL_TEXT_LIBRARIES = 5,

    /* What was lost, as tessel_getLosses(): {"verdict" ("clean", "lossy" or "invalid"), "losses": {place:
     * {"unit" ("counts", "words" or "events"), "occasions", "lost" (null where nobody knows), "first", "last"},
     * ...}, "order": {"stepsBack" (events of the run that were read after a later one), "largestStepPs" (how
     * far they go back, in T3 by the sync), "sorted" (there is a Sort), "unsorted" (events too late for it)},
     * "recording": {"verdict", "losses"} of the recording that the run reads or writes, or null; where its side
     * file says nothing, also "problem", the reason}. The places are "fifo", "dropped", "readBuffer",
     * "invalidWords", "store", "stage", "rawBlock", "unfoldBlock", "import", "file"; those where nothing was
     * lost aren't there. */
    TESSEL_TEXT_LOSSES = 6,

    /* The chain with all that its stages were added with: {"chain": [{"stage" ("coincidence", "merge", "delay",
     * "herald", "substream", "countrate" or "import"), ...}, ...]}, times in ps, as a file that the program's
     * --chain takes. It refuses an import, and a stage that deleteMani() ended, which also has "ended". */
    TESSEL_TEXT_STAGES = 7
};

/* Writes a text of the device with its zero. `which`: a tessel_text. `text`: `capacity` bytes; null, or a
 * capacity of 0, only asks. `needed` receives the length of the text with its zero, also where that is more
 * than `capacity`; 0 if there is no such text, with an error in the log. Null: not wanted. True: the text was
 * written. False: nothing was written to `text`. A text may grow between two calls: ask again. */
TESSEL_API bool tessel_getText(const char16_t *id, int32_t which, char *text, uint64_t capacity,
                               uint64_t *needed);

/* ------------------------------------------------------------------------------------------ what was lost
 * Every run keeps a ledger of what it lost. Nothing of a recorded file is lost but words that mean nothing;
 * live data get lost where somebody is too slow for them. What the host does without is no loss: an array that
 * it doesn't give, a stage that it ends, and what a run doesn't count any more once it was stopped and its time
 * is over, whose result is that of a run stopped earlier.
 *
 * A recording that lost something has a side file NAME.losses.json beside NAME.tgx, written before the run's
 * finished byte. Opening the recording takes it up; one that says nothing is a warning in the log. */

enum tessel_loss_place {
    TESSEL_LOSS_FIFO = 0,        /* the instrument's FIFO was full, which ends the run; nobody knows how many */
    TESSEL_LOSS_DROPPED = 1,     /* the instrument says that it dropped counts; nobody knows how many */
    TESSEL_LOSS_READ_BUFFER = 2, /* words that were read, and dropped undecoded */
    TESSEL_LOSS_INVALID = 3,     /* words that mean nothing, and are no event */
    TESSEL_LOSS_STORE = 4,     /* events before the first stage, or, without a chain, before the measurement */
    TESSEL_LOSS_STAGE = 5,     /* events after a stage */
    TESSEL_LOSS_RAW_BLOCK = 6, /* words that the host hadn't fetched */
    TESSEL_LOSS_UNFOLD_BLOCK = 7, /* events that the host hadn't fetched */
    TESSEL_LOSS_IMPORT = 8,       /* events at or after an import stage, and what other devices had for one */
    TESSEL_LOSS_FILE = 9,         /* words that are missing from the recording, but not from the result */
    TESSEL_LOSS_PLACES = 10
};

enum tessel_verdict {
    TESSEL_CLEAN = 0,  /* nothing was lost */
    TESSEL_LOSSY = 1,  /* something is missing; the times of all else are right */
    TESSEL_INVALID = 2 /* overflows of the time tag are missing, or may be: times after them are too early */
};

typedef struct tessel_loss
{
    uint64_t occasions; /* how often something was lost here; 0: never, and all else is 0 */
    uint64_t lost;      /* words or events, markers and overflows included; of FIFO and DROPPED always 0 */
    double first;       /* s since the run began to measure */
    double last;
} tessel_loss;

typedef struct tessel_losses
{
    size_t size;              /* sizeof(tessel_losses), set by the caller */
    int32_t verdict;          /* of the run's result; a tessel_verdict */
    int32_t recordingVerdict; /* of the recording that the run reads or writes; without one TESSEL_CLEAN */
    tessel_loss places[16];   /* by tessel_loss_place; from TESSEL_LOSS_PLACES on 0 */
} tessel_losses;

/* What the live run of the device has lost so far, or its last run in all. Before the first run nothing is
 * lost. Never waits for the run. False: there is no such device, or `losses` is null or of another version. */
TESSEL_API bool tessel_getLosses(const char16_t *id, tessel_losses *losses);

/* ---------------------------------------------------------------------------------------- what went wrong
 * For hosts that want to know at once what otherwise only the log says. */

/* Opens a recorded file as a device and makes it the current one. `id` receives the id of the new device and
 * has room for `capacity` bytes; null: not wanted. It is that of getFileDevice(), and where another device has
 * that already, the first free one of "...#2", "...#3" and so on. False: nothing was opened, because the file
 * can't be read or the id with its zero has no room; the device that was current stays so. A file that can be
 * read but is no recording opens all the same: tessel_lastError() says what is wrong with it. */
TESSEL_API bool tessel_openFile(const char *path, char *id, uint64_t capacity);

/* The last ERR line that the calling thread's last call logged, without time and tag; an empty text and 0 if it
 * logged none. Writes at most `capacity` bytes, the zero included, and returns the length of the whole text, at
 * most 4096. Each call of another function of this header forgets the line. Errors of a run come from threads
 * of its own, often after the call: they are in the log, and "StopReason" of getMeasDescription() says why the
 * run ended. Works before initAPI() and with the log off. */
TESSEL_API int32_t tessel_lastError(char *text, uint64_t capacity);

/* ------------------------------------------------------------------------------------- room for a result */

/* The array that the caller must give to a measurement that is started now: `rows` x `columns` elements of
 * `elementBytes` bytes, row after row. `kind`:
 *    4  getTimeTrace     uint32_t, a row for each channel
 *    8  getHistogram     uint32_t, a row for each channel
 *   16  getCorrelation   double, for y: g2 one row of 2 x M, FCS and FFCS three rows of numPoints + 1. x
 *                        fits in one such row.
 *   64  get2dHistogram   uint32_t, numBinsY rows
 * The setters, addM functions and clearManis() change it. A null pointer is not written to. False, with 0
 * everywhere: another kind (blocks have any size), no device, one that is not initialised, or more than 2^31
 * elements, with which no run begins. */
TESSEL_API bool tessel_getResultShape(const char16_t *id, int32_t kind, uint64_t *rows, uint64_t *columns,
                                      uint64_t *elementBytes);

/* ------------------------------------------------------------------------------------------------- threads */

/* With how many threads a run counts a recorded file, from the next run on: 1 to 256, or 0 for one for each
 * core that the process may use, which is the initial value. The key Threads of [Params] in the settings file
 * sets it too. Any number gives the same result, to the bit. False, with an error in the log: another number.
 *
 * getHistogram(), getTimeTrace() and the g2 of getCorrelation() count parts of the file side by side, each with
 * a copy of the result of its own, of at most 32 MiB. They don't
 *  - through a chain: its stages look at each event after the one before;
 *  - in a sequence (setSequenceMode) and with a stop count (setStopOverflow): where a step or the run ends
 *    depends on all counts before;
 *  - with a larger result, or a g2 window that holds more than a million events of a channel.
 * FCS and FFCS share out the lags, of live data too and among at most 8 threads, since a part of the file needs
 * all events of the longest lag before it. In all other cases one thread reads, one decodes, one counts, and
 * each stage of the chain has its own. */
TESSEL_API bool tessel_setThreads(int32_t threads);

/* -------------------------------------------------------------------------- recordings made by the caller
 * For simulations, converters and tests: writes a data file of the caller's own record words.
 *
 * A record word: bit 31 special, bits 30 to 25 code; T2: bits 24 to 0 timetag, in units of the base resolution;
 * T3: bits 24 to 10 dtime, in units of the resolution, bits 9 to 0 nsync. Special 0: an event on input code
 * + 1. Special 1: code 0 a sync (T2 alone), 1 to 15 a marker, 63 an overflow: the times of all words after it
 * are later by its timetag x 2^25 units, or its nsync x 2^10 syncs. Times don't decrease. A time of 0 counts as
 * no time at all with some measurements, so let a stream begin later. docs/file-format.md has the file around
 * the words, and readers of it. */

typedef struct tessel_recording tessel_recording;

typedef struct tessel_recording_params
{
    size_t size;              /* sizeof(tessel_recording_params), set by the caller */
    int32_t measMode;         /* 2 T2, 3 T3 */
    int32_t family;           /* record family: 0 ZP, 1 CD, 2 SV40, 3 LM70, 4 CD90 */
    int32_t numChannels;      /* input channels, 1 to 64 */
    double baseResolution;    /* ps, the unit of a T2 time tag; 0.5 to 1e12, with or without a fraction */
    double resolution;        /* ps, the unit of a T3 dtime; likewise; not used in T2 */
    double syncRate;          /* Hz, at most 2147483647; T3: at least 1e-6, and a replay goes by its period */
    int32_t acqTime;          /* ms, not negative */
    const double *inputRates; /* counts per second, numChannels of them, each at most 2147483647; or null */
    const char *serial;       /* serial number, null or empty: "0" */
    const char *comment;      /* null or empty: no comment */
} tessel_recording_params;

/* Creates the file at `path` (overwriting an existing one) and writes its header, with the caller's tags of the
 * current device. The header keeps both resolutions as they are given. A replay rounds them to whole
 * picoseconds and goes by the rounded ones wherever it makes a time of a word; a warning in the log says so.
 * The bins of getHistogram() in T3 are numbers of dtimes, so their edges are multiples of the resolution as
 * given, which tessel_getFileTags() has (MeasDesc_Resolution, in s). In T2 choose a unit without a fraction.
 * None of the calls with a recording needs initAPI(); before it there is no log, and tessel_lastError() alone
 * says why one failed. The result belongs to the caller, who ends it with tessel_recordingClose(). Null, with
 * an error in the log: a parameter is out of range, or the file can't be written. */
TESSEL_API tessel_recording *tessel_recordingCreate(const char *path, const tessel_recording_params *params);

/* Appends `count` record words. False if the disc refuses them, or refused earlier ones, which alone is logged;
 * the recording can still be closed. */
TESSEL_API bool tessel_recordingWrite(tessel_recording *recording, const uint32_t *words, uint64_t count);

/* The run took `ms` (not negative) and not acqTime: it was stopped before that, or nobody knew. The header then
 * says so, and the stop reason "Manual". False, with an error in the log: no recording, or no such time. */
TESSEL_API bool tessel_recordingSetDuration(tessel_recording *recording, int32_t ms);

/* Writes the number of records into the header, closes the file and frees the recording. False: something of
 * the file could not be written. Null is allowed. */
TESSEL_API bool tessel_recordingClose(tessel_recording *recording);

/* Writes the header tags of a recorded file as JSON: {"magic", "version", "dataStart" (file offset of the first
 * record), "fileSize", "tags": [{"name", "idx" (-1 none), "type", "value"}, ...]}. `size`: bytes of `buffer`.
 * `needed` receives the length of the text with its zero. True: the text was written. False: `size` is below
 * `needed`, or, with `needed` 0, the file can't be read. */
TESSEL_API bool tessel_getFileTags(const char *path, char *buffer, uint64_t size, uint64_t *needed);

/* --------------------------------------------------------------------------------- checking a recorded file
 * Neither needs a device or a run. Both read the whole file, some hundred million records a second, and block
 * that long. */

/* Writes as JSON what is wrong with a recorded file: {"verdict" ("clean"; "lossy": it replays, but something is
 * missing or unsure; "invalid": a replay isn't what was measured), "faults": [{"fault", "text"}, ...],
 * "fileSize", "headerSize", "crc" (of the header: true, it is right), "mode" (2, 3), "records" (whole ones in
 * the file), "recordsByHeader", "partBytes" (after the last whole record), "emptyRecords" (zeros after the last
 * one), "events": {"sync", "inputs" (up to the last that has any), "markers", "overflows", "invalid" (records
 * of channels or kinds that the device hasn't got), "ignored"}, "stepsBack" (events earlier than the one
 * before; in T3 by the sync number), "idleOverflows" (overflow records that don't move time on),
 * "firstFaultyRecord" (from 0), "timeTagPs" or "syncPeriodPs", "durationMs" (to the last event), "runMs",
 * "losses" (as the side file NAME.losses.json says)}. What is unknown is null. The faults, by verdict:
 *    invalid  header, mode, foreign (most records are of no channel of the device)
 *    lossy    crc, notClosed, cutShort, tooLong (the header counts fewer records), partRecord, emptyEnd,
 *             timeUnit, invalid, order, overflows, fileError (by the stop reason), losses (lossy or
 *             invalid, as the side file says)
 * `size`: bytes of `buffer`; 16384 hold any text. `needed` receives the length of the text with its zero. True:
 * the text was written. False: `size` is below `needed`, or, with `needed` 0, the file can't be read. */
TESSEL_API bool tessel_verifyFile(const char *path, char *buffer, uint64_t size, uint64_t *needed);

/* Writes to `repaired`, over a file that is there, a whole recording of one that a crash cut off or that is cut
 * short: its whole records, without an empty end, and its header with their number and a CRC. Of a recording
 * that was never closed the header also tells the length of the run and the rates of the inputs, by its
 * records, and "Unknown" as its stop reason; of one that is cut short "FileError". Other faults stay, and a
 * side file is written anew. `path` is only read. False, with an error in the log: nothing was cut off, the
 * fault is beyond repair, `repaired` is the same file, or it can't be written and isn't there. */
TESSEL_API bool tessel_repairFile(const char *path, const char *repaired);

/* -------------------------------------------------------------------------------------------------- remote
 * A device of this process can be served to other computers, and the instruments that another one serves are
 * devices here. The two speak lines of JSON over TCP. There is no authentication and no encryption: whoever
 * reaches the port reads the configuration of the device, sets its inputs and starts its measurement. So a
 * device is served on this computer alone unless an address is given; let others reach the port only through a
 * network that you trust, or a tunnel.
 *
 * What a peer asks for acts on the device that is served, on a thread of the library. It doesn't change the
 * current device. At most 256 peers are connected to a device at a time. */

/* Serves the device. `address`: the address of this computer, in numbers, at which it listens ("127.0.0.1",
 * "::1", "192.168.1.5"; "0.0.0.0" and "::" are all of them); null or empty: 127.0.0.1. `port`: 0 means 55000; a
 * device has a port of its own. Returns at once; peers are served until tessel_stopServing(), closeDevice() of
 * this device, or exitAPI(). A measurement that a peer starts while this process measures with the instrument
 * is refused, with an error in the log. False, with an error in the log: there is no such device, it is served
 * already, or the address and port can't be had. */
TESSEL_API bool tessel_serve(const char16_t *id, const char *address, uint16_t port);

/* Closes the port and every connection to it. On return no peer reaches the device any more. Blocks while a
 * peer's call is in the instrument's library, ten seconds at most. A device that isn't served stays as it
 * is. */
TESSEL_API void tessel_stopServing(const char16_t *id);

/* Asks the server at `host` (a name or an address; null or empty: this computer) and `port` (0: 55000) for its
 * instruments and makes a device of each that isn't known here. The current device stays. A device that the
 * server gives has the server's configuration; a second call asks for it again, and connects anew what was
 * lost. Blocks until all that has come, up to 5 s. False: the server can't be reached or doesn't answer like
 * one (an error in the log). A device that this port doesn't give is an error in the log too; it is known, but
 * isn't connected.
 *
 * Of such a device only setInputEdgeTrig() has an effect, and the start of a measurement, which then goes on at
 * the server: the run here ends at once, without events. Both are true whatever becomes of them there. A device
 * of the server with the id of a local one is a device of its own: an id means the one that was known first. */
TESSEL_API bool tessel_connect(const char *host, uint16_t port);

#ifdef __cplusplus
}
#endif

#endif
