#pragma once

struct ThriftRegister
{
    /// Makes the records usable in queued signals. Called by orvoRegisterMetaTypes(); calling it again does no harm.
    static void registerMetaTypes();
};
