#pragma once

/// Makes the types of the model usable in queued signals. Called once in a process, before its first worker is made.
void orvoRegisterMetaTypes();
