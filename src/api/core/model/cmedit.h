#pragma once

class CMPath;
class OrvoEdit;
class OrvoValue;

/// The rules by which a written value becomes a stored one. Without state, any thread.
class CMEdit
{
public:
    /**
     * The new value rounded to the step, then held within the limits. A text that is too short, a value without a type
     * over one with a type, and a value of another type give the old value; a text that is too long is cut. An old
     * value without a type lets any type through. The path is for the log line only.
     */
    static OrvoValue validate(const OrvoValue& oldValue, const OrvoValue& newValue, const OrvoEdit& edit,
                              const CMPath& path);
};
