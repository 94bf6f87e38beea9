#include "settings.h"

#include "core/model/cmnodes.h"
#include "core/orvo.h"
#include "records/orvoconstants.h"
#include "serviceprocess.h"

namespace {

CMError failure(const QString& text)
{
    return CMError(CMError::DefaultName(), text, CMError::DefaultTitle());
}

} // namespace

NetworkForm::NetworkForm(CMNodesWorker* tree, CMValueNode* connected)
    : OrvoForm(tree->nodes(), tree->addPrefix(QStringLiteral("network"))), m_connected(connected)
{
    listNode()->setTitle(TrString("Network"));
    m_name = addValue(tree, QStringLiteral("network/name"), "Name", OrvoValue().setString_(QString()));
    m_name->setEdit(OrvoEdit().setMaxLength(32));
    m_key = addValue(tree, QStringLiteral("network/key"), "Key", OrvoValue().setString_(QString()));
    auto* connectNode = CMActivateNode::create(tree->nodes(), tree->addPrefix(QStringLiteral("network/connect")), this,
                                               SLOT(on_connect_invoked(CMSetDataRequest)));
    connectNode->setTitle(TrString("Connect"));
    auto* disconnectNode = CMActivateNode::create(tree->nodes(), tree->addPrefix(QStringLiteral("network/disconnect")),
                                                  this, SLOT(on_disconnect_invoked(CMSetDataRequest)));
    disconnectNode->setTitle(TrString("Disconnect"));
    m_rows = {m_name->path(), m_key->path(), connectNode->path(), disconnectNode->path()};
    // Readers that do not watch see the rows, too.
    on_load();
}

void NetworkForm::on_load()
{
    if (!listNode())
        return;
    if (listNode()->rowsSize() == 0)
        for (const CMPath& row : qAsConst(m_rows))
            listNode()->rowsAppend(row);
    if (listNode()->rowsPaths().isEmpty())
        m_key->setValue(OrvoValue().setString_(QString()));
}

void NetworkForm::on_connect_invoked(CMSetDataRequest request)
{
    const QString fault = orvoNetworkIsKeyValid(m_key->value().string_(), OrvoNetworkProfileWirelessEncryption::WpaPsk);
    if (m_name->value().string_().isEmpty()) {
        request.reply().setError(failure(QStringLiteral("The network needs a name")));
    } else if (!fault.isEmpty()) {
        request.reply().setError(failure(fault));
    } else {
        m_connected->setValue(OrvoValue().setBool_(true));
        hide();
        request.reply().setValue(QVariant());
    }
}

void NetworkForm::on_disconnect_invoked(CMSetDataRequest request)
{
    m_connected->setValue(OrvoValue().setBool_(false));
    request.reply().setValue(QVariant());
}

Settings::Settings(CMNodesWorker* settings, CMNodesWorker* network)
{
    CMValueNode* language =
        addValue(settings, OrvoUILanguagePath().base(), "Language", OrvoValue().setString_(QStringLiteral("en")));
    language->setEdit(OrvoEdit().setMinLength(2).setMaxLength(2));
    CMValueNode* connected =
        addValue(network, OrvoNetworkStateConnected().base(), "Connected", OrvoValue().setBool_(true));
    connected->setReadOnly(true);
    m_form = std::make_unique<NetworkForm>(settings, connected);

    CMListRowsNode* root = CMListRowsNode::create(settings->nodes(), settings->prefixPath());
    root->setTitle(TrString("Settings"));
    root->rowsAppend(language->path());
    root->rowsAppend(connected->path());
    root->rowsAppend(m_form->path());
}
