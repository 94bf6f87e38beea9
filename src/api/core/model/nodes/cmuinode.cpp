#include "core/model/nodes/cmuinode.h"

#include "core/model/cmglobal.h"
#include "core/model/cmrequest.h"
#include "core/model/cmroles.h"
#include "core/model/cmroot.h"
#include "core/model/nodes/cmreference_p.h"
#include "core/model/nodes/cmwatches_p.h"
#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

namespace {

ORVO_LOGGER("CMUINode")

const char* const languageSlot = SLOT(languageChanged());

QVariant textOrAbsent(const QString& text)
{
    return text.isEmpty() ? QVariant() : QVariant(text);
}

QVariant trueOrAbsent(bool flag)
{
    return flag ? QVariant(true) : QVariant();
}

} // namespace

CMUINode::CMUINode(const CMPath& path) : CMNode(path) {}

CMUINode::~CMUINode() = default;

CMUINode* CMUINode::create(CMNodes* nodes, const CMPath& path)
{
    auto* node = new CMUINode(path);
    node->setNodes(nodes);
    return node;
}

void CMUINode::deleteLater()
{
    {
        const CMNodeLocker lock(mutex());
        if (!deleted() && m_title.translatable())
            unwatch(CMAbstractWorker::DataChange, OrvoUILanguagePath(), languageSlot);
    }
    CMNode::deleteLater();
}

bool CMUINode::getDataRequest(const CMGetDataRequest& request)
{
    const CMNodeLocker lock(mutex());
    if (!request.path().equals(path(), CMPath::WithoutParams))
        return false;
    const Params params = request.path().params();
    const QStringList& roles = request.roles();
    QVariantList values;
    values.reserve(roles.size());
    for (const QString& role : roles)
        values.append(getRoleData(role, params));
    request.reply().setValue(values);
    return true;
}

QVariant CMUINode::getRoleData(const QString& role, const Params& params)
{
    if (role == OrvoRoles::Path())
        return path().setParams(params).__variant();
    if (role == OrvoRoles::Id())
        return textOrAbsent(m_id);
    if (role == OrvoRoles::Title())
        return m_title.toString();
    if (role == OrvoRoles::Icon())
        return textOrAbsent(m_icon);
    if (role == OrvoRoles::Description())
        return m_description.toString();
    if (role == OrvoRoles::LongDescription())
        return m_longDescription.toString();
    if (role == OrvoRoles::Context())
        return browseItem(m_contextPath.__variant(), params).__variant();
    if (role == OrvoRoles::Disabled())
        return trueOrAbsent(m_disabled);
    if (role == OrvoRoles::Risky())
        return trueOrAbsent(m_risky);
    if (role == OrvoRoles::Preferred())
        return trueOrAbsent(m_preferred);
    if (role == OrvoRoles::Timestamp())
        return QVariant(quint64(timestamp()));
    if (role == OrvoRoles::MediaData())
        return m_mediaData.__variant();
    if (role == OrvoRoles::RenderAsButton())
        return trueOrAbsent(m_renderAsButton);
    return QVariant();
}

QString CMUINode::id() const
{
    return locked(m_id);
}

TrString CMUINode::title() const
{
    return locked(m_title);
}

QString CMUINode::icon() const
{
    return locked(m_icon);
}

TrString CMUINode::description() const
{
    return locked(m_description);
}

TrString CMUINode::longDescription() const
{
    return locked(m_longDescription);
}

CMPath CMUINode::contextPath() const
{
    return locked(m_contextPath);
}

bool CMUINode::disabled() const
{
    return locked(m_disabled);
}

bool CMUINode::risky() const
{
    return locked(m_risky);
}

bool CMUINode::preferred() const
{
    return locked(m_preferred);
}

bool CMUINode::renderAsButton() const
{
    return locked(m_renderAsButton);
}

OrvoMediaData CMUINode::mediaData() const
{
    return locked(m_mediaData);
}

void CMUINode::setId(const QString& id)
{
    assign(m_id, id);
}

void CMUINode::setTitle(const TrString& title)
{
    bool watches = false;
    {
        const CMNodeLocker lock(mutex());
        if (m_title == title)
            return;
        watches = title.translatable() && !m_title.translatable();
        if (watches)
            watch(CMAbstractWorker::DataChange, OrvoUILanguagePath(), languageSlot);
    }
    // The language is followed from ahead of the report on, so no reader of the new title misses a change of it.
    const CMNodeLocker lock(mutex());
    const int held = int(m_title.translatable()) + int(watches);
    if (m_title != title) {
        m_title = title;
        dataChanged();
    }
    // Another thread may have set a title meanwhile.
    const int needed = int(m_title.translatable());
    for (int i = needed; i < held; ++i)
        unwatch(CMAbstractWorker::DataChange, OrvoUILanguagePath(), languageSlot);
    if (held < needed)
        watch(CMAbstractWorker::DataChange, OrvoUILanguagePath(), languageSlot);
}

void CMUINode::setIcon(const QString& icon)
{
    assign(m_icon, icon);
}

void CMUINode::setDescription(const TrString& description)
{
    assign(m_description, description);
}

void CMUINode::setLongDescription(const TrString& longDescription)
{
    assign(m_longDescription, longDescription);
}

void CMUINode::setContextPath(const CMPath& contextPath)
{
    assign(m_contextPath, contextPath);
}

void CMUINode::setDisabled(bool disabled)
{
    assign(m_disabled, disabled);
}

void CMUINode::setRisky(bool risky)
{
    assign(m_risky, risky);
}

void CMUINode::setPreferred(bool preferred)
{
    assign(m_preferred, preferred);
}

void CMUINode::setRenderAsButton(bool renderAsButton)
{
    assign(m_renderAsButton, renderAsButton);
}

void CMUINode::setMediaData(const OrvoMediaData& mediaData)
{
    assign(m_mediaData, mediaData);
}

OrvoRoles CMUINode::getDataRoles(const QStringList& roles, const Params& params)
{
    const CMNodeLocker lock(mutex());
    QVariantList values;
    values.reserve(roles.size());
    for (const QString& role : roles)
        values.append(getRoleData(role, params));
    return CMGlobal::rolesValuesToHash(roles, values);
}

OrvoRoles CMUINode::getDataRoles(const Params& params)
{
    return getDataRoles(CMAllRoles(), params);
}

OrvoRoles CMUINode::browseItem(const QVariant& item, const Params& params)
{
    if (item.type() != QVariant::String)
        return OrvoRoles(item.toHash());
    CMPath path = CMPath::fromQVariant(item);
    if (path.isEmpty())
        return OrvoRoles();
    path.addParams(params);
    const QStringList roles = CMAllRoles();
    const CMReply<QVariantList> reply = readReference(path, roles, logger(), "CMUIItem::getItem: ");
    const CMError error = reply.error();
    if (error.isError())
        return OrvoRoles().setTitle(error.message());
    const QVariantList values = reply.value();
    return values.size() == roles.size() ? CMGlobal::rolesValuesToHash(roles, values) : OrvoRoles();
}

void CMUINode::watch(CMAbstractWorker::ChangeType type, const CMPath& path, const char* method)
{
    const CMNodeLocker lock(mutex());
    if (!m_watches)
        m_watches = std::make_unique<CMWatches>(this);
    m_watches->add(type, path, method);
}

void CMUINode::unwatch(CMAbstractWorker::ChangeType type, const CMPath& path, const char* method)
{
    const CMNodeLocker lock(mutex());
    if (m_watches)
        m_watches->remove(type, path, method);
}

void CMUINode::languageChanged()
{
    dataChanged();
}
