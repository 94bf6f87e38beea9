#include "mediasettings.h"

#include "confignode.h"

#include "core/model/cmnodes.h"

MediaSettings::MediaSettings(CMNodesWorker* worker, ConfigNode* config, QObject* parent)
    : QObject(parent),
      m_config(config),
      m_list(CMListRowsNode::create(worker->nodes(), worker->addPrefix(QStringLiteral("settings"))))
{
    m_list->setTitle(TrString("Settings"));
    add(worker, QStringLiteral("sortBy"), "Sort by", "0 artist, 1 title, 2 year, 3 duration", ConfigDocument::sortBy);
    // A number, not a bool: limits are kept for numbers, so whatever is written ends as one of the two.
    add(worker, QStringLiteral("showHidden"), "Show hidden files",
        "1 shows files and folders whose names begin with a dot, 0 leaves them out", ConfigDocument::showHidden);
    connect(m_config, &ConfigNode::changed, this, &MediaSettings::showValues);
    showValues();
}

CMPath MediaSettings::path() const
{
    return m_list->path();
}

void MediaSettings::add(CMNodesWorker* worker, const QString& name, const char* title, const char* description,
                        const ConfigDocument::Setting& setting)
{
    CMValueNode* node =
        CMValueNode::create(worker->nodes(), worker->addPrefix(QStringLiteral("settings/%1").arg(name)));
    node->setTitle(TrString(title));
    node->setDescription(TrString(description));
    node->setEdit(OrvoEdit().setMin(QString::number(setting.min)).setMax(QString::number(setting.max)));
    node->setValidate(this, SLOT(on_validate(CMSetDataRequest,OrvoValue)));
    m_list->rowsAppend(node->path());
    m_entries.append({node, setting});
}

void MediaSettings::on_validate(const CMSetDataRequest& request, const OrvoValue& value)
{
    for (const Entry& entry : qAsConst(m_entries))
        if (request.path().equals(entry.node->path(), CMPath::WithoutParams))
            m_config->setNumber(entry.setting, value.i32_());
    request.reply().setValue(true);
}

void MediaSettings::showValues()
{
    for (const Entry& entry : qAsConst(m_entries))
        entry.node->setValue(OrvoValue().setI32_(m_config->number(entry.setting)));
}
