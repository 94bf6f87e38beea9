#include "records/orvooperation.h"

int OrvoOperation::type() const
{
    if (m_hash.contains(Not_()))
        return OrvoOperationType::Not_;
    if (m_hash.contains(Add()))
        return OrvoOperationType::Add;
    if (m_hash.contains(AddSteps()))
        return OrvoOperationType::AddSteps;
    return -1;
}

OrvoOperation& OrvoOperation::setMember(const QString& key, const OrvoHash& member)
{
    m_hash.clear();
    m_hash.insert(key, member.__variant());
    return *this;
}
