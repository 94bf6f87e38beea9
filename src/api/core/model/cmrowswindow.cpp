#include "core/model/cmrowswindow.h"

#include <cstdlib>
#include <utility>

void CMRowsWindow::resize(int size)
{
    m_slots.assign(size_t(size), Item());
    m_first = 0;
}

void CMRowsWindow::shift(int rows)
{
    if (std::abs(rows) >= size())
        return clear();
    for (; rows > 0; --rows) {
        m_slots[m_first] = Item();
        m_first = slot(1);
    }
    for (; rows < 0; ++rows) {
        m_first = slot(size() - 1);
        m_slots[m_first] = Item();
    }
}

void CMRowsWindow::insert(int index, const OrvoRoles& roles)
{
    for (int i = size() - 1; i > index; --i)
        at(i) = std::move(at(i - 1));
    at(index) = Item{roles, false};
}

void CMRowsWindow::erase(int index)
{
    for (int i = index; i < size() - 1; ++i)
        at(i) = std::move(at(i + 1));
    at(size() - 1) = Item();
}
