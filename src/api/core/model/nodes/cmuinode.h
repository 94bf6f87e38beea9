#pragma once

#include "core/model/nodes/cmnode.h"
#include "core/model/nodes/cmnodelocker.h"
#include "core/orvoLanguage.h"
#include "records/orvoroles.h"

#include <memory>

class CMWatches;

/**
 * A node that a user interface can show: the presentation data of one item, answered role by role.
 *
 * Getters and setters may be called from any thread and take the node's mutex. A setter compares first and reports a
 * data change only when something changed. The title alone follows language changes while it is translatable.
 *
 * A node that refers to others obeys one rule of locks. It subscribes at them by watch() and unwatch(), which reach the
 * others when no node's mutex is held any more; nodes may refer to each other in any way, rings included. It may read
 * them under its own mutex, as the items of getRoleData() are read; what a node shows from others by such reads never
 * leads back to the node itself.
 */
class CMUINode : public CMNode
{
    Q_OBJECT

public:
    using Params = CMPath::Params;

    explicit CMUINode(const CMPath& path);
    ~CMUINode() override;
    static CMUINode* create(CMNodes* nodes, const CMPath& path);

    void deleteLater() override;
    /// Serves the node's own path only. The reply has one value per role, invalid for what the node does not know.
    bool getDataRequest(const CMGetDataRequest& request) override;

    virtual void setDisabled(bool disabled);
    /// Called with the mutex held. An absent value is an invalid variant. An override falls through to its base.
    virtual QVariant getRoleData(const QString& role, const Params& params);

    QString id() const;
    TrString title() const;
    /// Name or URL of a picture.
    QString icon() const;
    TrString description() const;
    TrString longDescription() const;
    /// The node that holds this item's context item.
    CMPath contextPath() const;
    bool disabled() const;
    bool risky() const;
    bool preferred() const;
    bool renderAsButton() const;
    OrvoMediaData mediaData() const;

    void setId(const QString& id);
    void setTitle(const TrString& title);
    void setIcon(const QString& icon);
    void setDescription(const TrString& description);
    void setLongDescription(const TrString& longDescription);
    void setContextPath(const CMPath& contextPath);
    void setRisky(bool risky);
    void setPreferred(bool preferred);
    void setRenderAsButton(bool renderAsButton);
    void setMediaData(const OrvoMediaData& mediaData);

    /// The roles with what carries nothing left out.
    OrvoRoles getDataRoles(const QStringList& roles, const Params& params);
    OrvoRoles getDataRoles(const Params& params);

    /**
     * The roles of an item that is a record itself or, as a text, the path of a node. Blocks for up to 2,000 ms on a
     * path; a failure gives an item that has the error's message as its title.
     */
    static OrvoRoles browseItem(const QVariant& item, const Params& params);

protected:
    template <typename T>
    T locked(const T& member) const
    {
        const CMNodeLocker lock(mutex());
        return member;
    }
    template <typename T>
    void assign(T& member, const T& value)
    {
        const CMNodeLocker lock(mutex());
        if (member == value)
            return;
        member = value;
        dataChanged();
    }

    /**
     * Subscribes a slot of this node to changes at another one, for as often as it is called, with a direct connection.
     * The method is always given by the same pointer. Made when this thread holds no node's mutex any more, but before
     * the outermost call into a node returns: what must not miss a change calls it ahead of taking the mutex.
     */
    void watch(CMAbstractWorker::ChangeType type, const CMPath& path, const char* method);
    /// Takes one such subscription away; without one, nothing.
    void unwatch(CMAbstractWorker::ChangeType type, const CMPath& path, const char* method);

private slots:
    void languageChanged();

private:
    QString m_id;
    TrString m_title;
    QString m_icon;
    TrString m_description;
    TrString m_longDescription;
    CMPath m_contextPath;
    bool m_disabled = false;
    bool m_risky = false;
    bool m_preferred = false;
    bool m_renderAsButton = false;
    OrvoMediaData m_mediaData;
    /// Made with the first watch: most nodes have none.
    std::unique_ptr<CMWatches> m_watches;
};
