#pragma once

#include <QString>
#include <QStringList>

/// The hidden verb that the shell's completion calls.
QString completeVerbName();
/**
 * Prints what may stand in the place of the last word, one candidate a line. The words are those behind "orvoctl". Says
 * nothing when it knows nothing, and takes no longer than a person waits.
 */
void complete(const QStringList& words);
