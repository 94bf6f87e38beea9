#pragma once

class CMAbstractWorker;

/// The process-wide worker that views and nodes use; null until it is set. Any thread.
CMAbstractWorker* CMRoot();
/// Sets it, once in the life of the process and before any view is made. Ownership stays with the caller.
void CMRoot_setInstance(CMAbstractWorker* worker);
