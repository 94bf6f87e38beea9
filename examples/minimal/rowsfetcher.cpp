// A rows fetcher downloads a list chunk by chunk and then tells each change. It holds no rows: a storage says which
// ones it wants next and is given them. This one starts anew when the list changes; a CMRowsClone is one that follows.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>

class TitleStorage : public CMRowsFetcherRows
{
public:
    explicit TitleStorage(const CMPath& path) : CMRowsFetcherRows(nullptr, path) {}

    RequestReply getRequest() override
    {
        if (fetcher()->isLoading())
            m_titles.clear();
        const int next = m_titles.size();
        if (fetcher()->isLoading() || next < fetcher()->rowsCount())
            return RequestReply(next, next + 99);
        std::cout << next << " titles, the last one is " << m_titles.last().toStdString() << std::endl;
        QCoreApplication::quit();
        return RequestReply();
    }
    void setItem(int row, const OrvoRoles& roles) override
    {
        if (row == m_titles.size())
            m_titles.append(roles.title());
        else
            fetcher()->reset();
    }
    void insertItem(int, const OrvoRoles&) override { fetcher()->reset(); }
    void removeItem(int) override { fetcher()->reset(); }
    void moveItem(int, int) override { fetcher()->reset(); }

private:
    QStringList m_titles;
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();
    CMRemoteWorker worker("rowsfetcher", "lamp");
    CMRoot_setInstance(&worker);

    TitleStorage titles(CMPath::fromEncoded("lamp:scenes"));
    return application.exec();
}
