#pragma once

/**
 * Reads and writes physical memory through /dev/mem, for registers that no driver offers.
 *
 * Without state; any thread may call. Each call opens and maps one page of 4,096 bytes, within which the whole range
 * must lie, and closes it again. Trouble is told on standard error. Needs the rights to open the device.
 */
class OrvoMemoryAccess
{
public:
    /**
     * Lengths of 1, 2 and 4 load one unit of that size into *value; any other copies so many bytes to where value
     * points. False if the memory cannot be reached or the length is beyond a page.
     */
    static bool readMem(int address, int length, unsigned long* value);
    /// Stores the low bits of the value as one unit of 1, 2 or 4 bytes. False, too, if these are not all of the value.
    static bool writeMem(int address, int length, unsigned int value);
};
