#include "core/model/cmroot.h"

#include <QtGlobal>

namespace {

CMAbstractWorker* s_root = nullptr;

} // namespace

CMAbstractWorker* CMRoot()
{
    return s_root;
}

void CMRoot_setInstance(CMAbstractWorker* worker)
{
    Q_ASSERT(!s_root);
    s_root = worker;
}
