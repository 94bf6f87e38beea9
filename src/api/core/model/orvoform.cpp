#include "core/model/orvoform.h"

#include "core/model/nodes/cmlistrowsnode.h"
#include "core/orvo.h"

#include <QPointer>

OrvoForm::OrvoForm(CMNodes* nodes, const CMPath& path)
    : m_nodes(nodes), m_path(path), m_listNode(CMListRowsNode::create(nodes, path))
{
    m_listNode->setContainerType(OrvoRolesContainerType::Form_);
    orvoConnect(listNode(), SIGNAL(rowsPathAdded()), this, SLOT(on_load()));
    orvoConnect(listNode(), SIGNAL(rowsPathRemoved()), this, SLOT(on_load()));
}

OrvoForm::~OrvoForm()
{
    if (!m_listNode)
        return;
    // The readers leave now, and the class that would hear of it in on_load() is gone already.
    orvoDisconnect(listNode(), SIGNAL(rowsPathAdded()), this, SLOT(on_load()));
    orvoDisconnect(listNode(), SIGNAL(rowsPathRemoved()), this, SLOT(on_load()));
    m_listNode->deleteLater();
}

void OrvoForm::deleteLater()
{
    if (m_listNode) {
        const QExplicitlySharedDataPointer<CMListRowsNode> node = m_listNode;
        const QPointer<OrvoForm> alive(this);
        node->deleteLater();
        if (!alive)
            return;
        m_listNode.reset();
    }
    QObject::deleteLater();
}

void OrvoForm::hide()
{
    if (m_listNode)
        m_listNode->hide();
}
