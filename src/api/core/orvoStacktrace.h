#pragma once

#include <QtGlobal>

#include <glib.h>

class QMessageLogContext;
class QString;

/**
 * What a process leaves behind when it dies, and shows of its threads when it is asked to: stacks on stderr, in one
 * form with the messages of Qt and GLib.
 *
 * SIGSEGV and SIGABRT print the stack of their thread and end the process as the kernel would, with a core; SIGUSR1
 * prints the stack of the thread that it meets, and the process goes on. All writes go to stderr directly and may come
 * from any thread. Names of a program's own functions need exported symbols (-rdynamic).
 *
 * A dying thread allocates inside its handler: one that crashes inside malloc() may hang there, and one whose stack is
 * used up dies without a word. A thread that goes on does not: a thread of its own, which install() starts, prints for
 * it.
 */
namespace orvoStacktrace {

/// Once, at the start of a process; a second call does nothing. Stays until the process ends.
void install();
/// Routes GStreamer's messages here, whatever domain is named; needed where its library has set a handler of its own.
void installGLogHandler(char const* domain);

/// The command line with blanks between and behind its words, cut to size - 1 bytes.
void readCmdline(char* buffer, int size);
/// Ends the process through the signal's own default action.
[[noreturn]] void dumpCore(int signal);
/// One line for each frame of the calling thread, the innermost first; 0 begins with this function itself.
void dumpStack(unsigned int skipFrames);
void signal_handler(int signal);

} // namespace orvoStacktrace

/// A line for the message; a fatal one ends the process.
void glibLogHandler(char const* domain, GLogLevelFlags level, char const* message, void* userData);
/// A line for the message; a fatal one ends the process.
void orvoQtMessageOutput(QtMsgType type, QMessageLogContext const& context, QString const& text);
