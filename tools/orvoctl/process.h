#pragma once

#include <functional>

class QObject;

/// Before the application object is made: signals, the event loop's engine and the order of JSON members.
void prepareProcess();
/// The library's log lines and Qt's: none, or with `verbose` warnings and worse, on stderr.
void configureLogging(bool verbose);
/// Calls `stop` from the parent's event loop when a signal asks the process to end, or when nobody reads stdout.
void callOnStop(QObject* parent, std::function<void()> stop);
/// Calls `resize` from the parent's event loop when the terminal has another size.
void callOnResize(QObject* parent, std::function<void()> resize);
