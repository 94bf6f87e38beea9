#include "core/model/cmversion.h"

#include <climits>

int CMVersion::s_last = 0;

CMVersion::CMVersion()
{
    const QMutexLocker lock(&mutex());
    m_value = ++s_last;
}

int CMVersion::next()
{
    const QMutexLocker lock(&mutex());
    m_value = m_value == INT_MAX ? 1 : m_value + 1;
    return m_value;
}

QMutex& CMVersion::mutex()
{
    static QMutex instance;
    return instance;
}
