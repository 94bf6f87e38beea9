#pragma once

#include "records/orvoroles.h"

#include <vector>

/**
 * The slots of a CMRowsBrowser's window: a deque of fixed size, kept in a ring, so that a step of the window moves no
 * slot and allocates nothing.
 *
 * Knows positions only; which row a slot stands for is the browser's affair. A value class, for one thread.
 */
class CMRowsWindow
{
public:
    /// One row of the list.
    struct Item
    {
        /// Empty while the row is not loaded.
        OrvoRoles roles;
        /// The row is stale: to be fetched again, its roles stay readable meanwhile.
        bool reloadFlag = false;

        bool isLoaded() const { return !reloadFlag && !roles.isEmpty(); }
    };

    /// Walks the slots in the order of their rows. Ends with the next change of the window.
    template <typename Window, typename Slot>
    class Iterator
    {
    public:
        Iterator(Window* window, int index) : m_window(window), m_index(index) {}

        /// The position in the window; its size at the end.
        int index() const { return m_index; }
        Slot& operator*() const { return m_window->at(m_index); }
        Slot* operator->() const { return &m_window->at(m_index); }
        Iterator& operator++()
        {
            ++m_index;
            return *this;
        }
        friend bool operator==(const Iterator& a, const Iterator& b) { return a.m_index == b.m_index; }
        friend bool operator!=(const Iterator& a, const Iterator& b) { return a.m_index != b.m_index; }

    private:
        Window* m_window;
        int m_index;
    };
    using iterator = Iterator<CMRowsWindow, Item>;
    using const_iterator = Iterator<const CMRowsWindow, const Item>;

    explicit CMRowsWindow(int size = 1) : m_slots(size_t(size)) {}

    int size() const { return int(m_slots.size()); }
    Item& at(int index) { return m_slots[slot(index)]; }
    const Item& at(int index) const { return m_slots[slot(index)]; }
    iterator begin() { return {this, 0}; }
    iterator end() { return {this, size()}; }
    const_iterator begin() const { return {this, 0}; }
    const_iterator end() const { return {this, size()}; }

    /// All slots are default ones then.
    void resize(int size);
    void clear() { resize(size()); }
    /// Moves the window by so many rows towards the end, or towards the beginning when negative.
    void shift(int rows);
    /// The slots from the position on move up by one; the last one goes.
    void insert(int index, const OrvoRoles& roles);
    /// The slots behind the position move down by one; a default one comes last.
    void erase(int index);

private:
    size_t slot(int index) const
    {
        const size_t slot = m_first + size_t(index);
        return slot < m_slots.size() ? slot : slot - m_slots.size();
    }

    std::vector<Item> m_slots;
    /// Where the first slot lies in m_slots.
    size_t m_first = 0;
};
