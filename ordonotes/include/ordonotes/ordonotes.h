// The log: traces switched by a flag word, log lines that are always written,
// and timing messages.
//
// Every message becomes exactly one line, written with one write(2), so lines
// from several threads or processes sharing the destination never interleave.
// A line is a prefix naming its kind, the text, and one line break:
//
//   "trace: " for QENMESG_Trace
//   "log: "   for QENMESG_Log
//   "time: "  for QENMESG_AddMessageFF, as "time: <text>: 0.012 s total, 0.010 s user"
//
// Line breaks at the end of a message are dropped before the one line break
// is added, so a text ending in "\n" is not doubled; line breaks inside the
// text stay, within the same write.
//
// Destination: standard error. The environment variable QENMESG_LOG, read
// once at the first message, names a file to append to instead, or is "off"
// to write nothing. A file that can't be opened leaves the log on standard
// error, with one line saying why.
#ifndef ORDONOTES_ORDONOTES_H
#define ORDONOTES_ORDONOTES_H

#define ORDONOTES_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

// printf-like; writes the trace when `flags` and `mask` have a bit in common.
ORDONOTES_API void QENMESG_Trace(unsigned flags, unsigned mask, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Whether QENMESG_Trace with these arguments would write: a caller asks first
// where the text takes work to build.
ORDONOTES_API bool QENMESG_CheckTrace(unsigned flags, unsigned mask);

// One line, whatever the flags. The text is written as given, not as a format.
ORDONOTES_API void QENMESG_Log(const char* text);

// A timing message: the text, then the two numbers as seconds with three
// decimals, "total" first. The first argument is reserved and ignored.
ORDONOTES_API void QENMESG_AddMessageFF(unsigned reserved, const char* text, double total,
                                        double user);

// A capture of the log: while a sink is set, every line goes to it instead
// of the destination (a tool shows a failure's log lines with its answer): the whole line with its
// prefix, without the final line break. The sink is called under the log's lock, one line at a
// time; a message that the sink itself logs goes to the destination, and a sink may replace itself
// by calling QENMESG_SetSink. After SetSink returns, the previous sink is no longer called. Null
// restores the destination.
typedef void (*QENMESG_Sink)(const char* line, void* context);
ORDONOTES_API void QENMESG_SetSink(QENMESG_Sink sink, void* context);

#ifdef __cplusplus
}
#endif

#endif
