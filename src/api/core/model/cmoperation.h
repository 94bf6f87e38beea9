#pragma once

class OrvoEdit;
class OrvoOperation;
class OrvoValue;

/// Computes a new value from an old one and a relative operation. Without state, any thread.
class CMOperation
{
public:
    /// Not held within the limits: CMEdit::validate() follows. An empty value where the type has no such operation.
    static OrvoValue apply(const OrvoValue& value, const OrvoEdit& edit, const OrvoOperation& operation);
};
