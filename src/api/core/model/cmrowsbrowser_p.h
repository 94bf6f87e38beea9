#pragma once

#include "core/model/cmrowsbrowser.h"

#include <QPointer>

/// Merges a burst of row moves and changes into one look at the window.
constexpr int rowsTriggerDelayMs = 30;

class CMRowsBrowser::Watch
{
public:
    explicit Watch(CMRowsBrowser* browser) : m_browser(browser), m_generation(browser->m_generation) {}

    bool isAlive() const { return !m_browser.isNull(); }
    bool isOver() const { return m_browser.isNull() || m_browser->m_generation != m_generation; }

private:
    const QPointer<CMRowsBrowser> m_browser;
    const int m_generation;
};
