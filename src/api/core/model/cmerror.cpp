#include "core/model/cmerror.h"

CMError::CMError(const QString& name, const QString& message, const QString& title)
{
    insert(Name(), name);
    insert(Message(), message);
    insert(Title(), title);
}
