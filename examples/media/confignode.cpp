#include "confignode.h"

#include "core/model/cmnodes.h"
#include "core/model/nodes/cmnodelocker.h"
#include "medialog.h"
#include "records/orvoroles.h"
#include "records/orvovalue.h"

namespace {

/// The payload of a value record; anything else as it is.
QVariant plain(const QVariant& value)
{
    const QVariantHash record = value.toHash();
    const QString type = record.value(OrvoValue::Type()).toString();
    return record.contains(type) ? record.value(type) : value;
}

} // namespace

ConfigNode::ConfigNode(const CMPath& path) : CMVariantNode(path) {}

ConfigNode* ConfigNode::create(CMNodes* nodes, const CMPath& path, const QVariantHash& document)
{
    auto* node = new ConfigNode(path);
    node->setNodes(nodes);
    node->setValue(document);
    return node;
}

bool ConfigNode::request(CMRequest request)
{
    const auto setData = request_cast<CMSetDataRequest>(request);
    QString place;
    if (setData.isNull() || setData.role() != OrvoRoles::Value()
        || !request.path().withoutParams().startsWith(path(), &place)
        || !(place.isEmpty() || place.startsWith(QLatin1Char('/'))))
        return CMVariantNode::request(request);
    return write(setData, place.mid(1));
}

bool ConfigNode::write(const CMSetDataRequest& request, const QString& place)
{
    QVariant value = plain(request.value());
    if (const QString problem = ConfigDocument::fit(place, value); !problem.isEmpty()) {
        LOG4CPLUS_WARN(mediaLog(), "refused to configure " << request.path().toEncoded().toStdString() << ": "
                                                           << problem.toStdString());
        request.reply().setValue(false);
        return true;
    }
    CMNodeLocker lock(mutex());
    const QVariant before = this->value();
    // One by one, so that whoever watches a single setting hears of it, too.
    const QMap<QString, int> numbers = ConfigDocument::numbers(place, value);
    for (auto it = numbers.cbegin(); it != numbers.cend(); ++it) {
        auto* data = new CMSetDataRequest::Data;
        data->path = path() + (QLatin1Char('/') + it.key());
        data->role = OrvoRoles::Value();
        data->value = it.value();
        CMVariantNode::request(CMSetDataRequest(data));
    }
    const QVariant after = this->value();
    lock.unlock();
    request.reply().setValue(true);
    if (after != before)
        emit changed(after.toHash());
    return true;
}

int ConfigNode::number(const ConfigDocument::Setting& setting) const
{
    return ConfigDocument::number(value().toHash(), setting);
}

void ConfigNode::setNumber(const ConfigDocument::Setting& setting, int number)
{
    setValueAt(setting.path(), number);
}
