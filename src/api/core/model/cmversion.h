#pragma once

#include <QMutex>

/**
 * A counter behind request ids. A new one starts behind all that were made before it in the process; it steps under
 * the process-wide mutex() and goes on at 1 when it would become negative.
 */
class CMVersion
{
public:
    CMVersion();

    /// Steps and returns the new value.
    int next();
    int value() const { return m_value; }

    static QMutex& mutex();

private:
    static int s_last;

    int m_value;
};
