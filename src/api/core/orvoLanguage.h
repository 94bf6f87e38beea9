#pragma once

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QSharedData>
#include <QSharedDataPointer>
#include <QString>
#include <QStringList>

#include <iosfwd>
#include <memory>

class QTranslator;

/// A translatable text as it stands in code; the texts must live as long as the process, as literals do.
struct TrCharData
{
    const char* context;
    const char* sourceText;
    const char* disambiguation = nullptr;
    /// The number that selects the plural form and replaces "%n"; -1 for none.
    int n = -1;
};

/**
 * One argument of a TrString: a value and how it is formatted in place of "%1" and its like.
 *
 * An immutable, implicitly shared value: copies may be used in several threads. Width, base, format, precision and fill
 * mean what they mean for QString::arg.
 */
class TrArg
{
public:
    /// The base leaves a text as it is; derived classes replace the lowest placeholder in it.
    class ArgData : public QSharedData
    {
    public:
        virtual ~ArgData();
        virtual QString apply(const QString& text) const;
    };

    TrArg();
    TrArg(const QString& value, int fieldWidth = 0, const QChar& fillChar = QLatin1Char(' '));
    TrArg(int value, int fieldWidth = 0, int base = 10, const QChar& fillChar = QLatin1Char(' '));
    TrArg(unsigned int value, int fieldWidth = 0, int base = 10, const QChar& fillChar = QLatin1Char(' '));
    TrArg(long value, int fieldWidth = 0, int base = 10, const QChar& fillChar = QLatin1Char(' '));
    TrArg(unsigned long value, int fieldWidth = 0, int base = 10, const QChar& fillChar = QLatin1Char(' '));
    TrArg(long long value, int fieldWidth = 0, int base = 10, const QChar& fillChar = QLatin1Char(' '));
    TrArg(unsigned long long value, int fieldWidth = 0, int base = 10, const QChar& fillChar = QLatin1Char(' '));
    TrArg(short value, int fieldWidth = 0, int base = 10, const QChar& fillChar = QLatin1Char(' '));
    TrArg(unsigned short value, int fieldWidth = 0, int base = 10, const QChar& fillChar = QLatin1Char(' '));
    TrArg(QChar value, int fieldWidth = 0, const QChar& fillChar = QLatin1Char(' '));
    TrArg(char value, int fieldWidth = 0, const QChar& fillChar = QLatin1Char(' '));
    TrArg(double value, int fieldWidth = 0, char format = 'g', int precision = -1,
          const QChar& fillChar = QLatin1Char(' '));

    // Several texts take their places in one step, so that a "%2" inside the first is not taken for a placeholder.
    TrArg(const QString& a, const QString& b) : TrArg(QStringList{a, b}) {}
    TrArg(const QString& a, const QString& b, const QString& c) : TrArg(QStringList{a, b, c}) {}
    TrArg(const QString& a, const QString& b, const QString& c, const QString& d) : TrArg(QStringList{a, b, c, d}) {}
    TrArg(const QString& a, const QString& b, const QString& c, const QString& d, const QString& e)
        : TrArg(QStringList{a, b, c, d, e})
    {}
    TrArg(const QString& a, const QString& b, const QString& c, const QString& d, const QString& e, const QString& f)
        : TrArg(QStringList{a, b, c, d, e, f})
    {}
    TrArg(const QString& a, const QString& b, const QString& c, const QString& d, const QString& e, const QString& f,
          const QString& g)
        : TrArg(QStringList{a, b, c, d, e, f, g})
    {}
    TrArg(const QString& a, const QString& b, const QString& c, const QString& d, const QString& e, const QString& f,
          const QString& g, const QString& h)
        : TrArg(QStringList{a, b, c, d, e, f, g, h})
    {}
    TrArg(const QString& a, const QString& b, const QString& c, const QString& d, const QString& e, const QString& f,
          const QString& g, const QString& h, const QString& i)
        : TrArg(QStringList{a, b, c, d, e, f, g, h, i})
    {}

    TrArg(const TrArg&) = default;
    TrArg& operator=(const TrArg&) = default;
    virtual ~TrArg();

    QString apply(const QString& text) const;
    /// The arguments one after the other, each on the result of the one before.
    static QString applyArgs(const QString& text, const QList<TrArg>& args);

private:
    explicit TrArg(const QStringList& values);

    QExplicitlySharedDataPointer<const ArgData> d;
};

/**
 * A text for users that is translated at the moment of use, and again after the language has changed; or plain text.
 *
 * A value class. toString() may be called from any thread, also on copies in several threads; changing one object needs
 * the caller's own care, as with QString. A translatable text is translated once for each language that is loaded, and
 * all copies share the result.
 */
class TrString
{
public:
    class Data : public QSharedData
    {
    public:
        virtual ~Data();
        /// The text in the current language, made anew.
        virtual QString toString() const;

        QByteArray context;
        QByteArray sourceText;
        QByteArray disambiguation;
        int n = -1;
        /// The plain text; the result of the last translation for a translatable one, guarded by Language::mutex().
        mutable QString text;
        bool translatable = false;
        QList<TrArg> args;
        /// The Language version that `text` was made for, guarded by Language::mutex().
        mutable int version = -1;
    };

    TrString();
    /// Plain text from UTF-8.
    TrString(const char* text);
    TrString(const QString& text);
    TrString(const TrCharData& source, const QList<TrArg>& args = QList<TrArg>());
    TrString(const TrCharData& source, const TrArg& arg);

    bool translatable() const { return d->translatable; }
    /// Plain text as it stands, whatever the arguments; otherwise the translation with its arguments.
    QString toString() const;

    // A text that was translated before keeps its result until another language is loaded: give the arguments before
    // the first use.
    void setArgs(const QList<TrArg>& args);
    void setArgs(int n, const QList<TrArg>& args);
    void setArg(const TrArg& arg);
    void setArg(int n, const TrArg& arg);

    friend bool operator==(const TrString& a, const TrString& b) { return a.d == b.d || a.toString() == b.toString(); }
    friend bool operator!=(const TrString& a, const TrString& b) { return !(a == b); }
    /// The UTF-8 of toString().
    friend std::ostream& operator<<(std::ostream& stream, const TrString& text) { return text.print(stream); }

private:
    std::ostream& print(std::ostream& stream) const;

    QSharedDataPointer<Data> d;
};

/**
 * The process-wide translator. One instance, made at first use and never destroyed.
 *
 * All functions may be called from any thread. The language is not remembered: whoever knows the setting calls
 * loadTranslations() again, and every TrString is translated anew at its next use.
 */
class Language : public QObject
{
    Q_OBJECT
public:
    static Language* instance();

    /// Guards the translator, the version and the translations kept in all TrStrings. Recursive.
    QMutex* mutex() { return &m_mutex; }
    /// Moves with each call of loadTranslations().
    int version() const;

    /**
     * Loads "orvo_" + language from the current directory, from "translations" beside the program or two folders above
     * it, whichever has it first. Without a file the texts are the source texts again, and the result is false.
     */
    bool loadTranslations(QString language);

    static QString ntr(const TrCharData& source);
    static QString ntr(const TrString::Data& source);

signals:
    /// Emitted after each loading, failed or not, in the thread that called loadTranslations() and without the mutex.
    void languageChanged();

private:
    friend class TrString;

    Language();
    ~Language() override;

    const std::unique_ptr<QTranslator> m_translator;
    mutable QMutex m_mutex;
    int m_version = 0;
};

/// The class of a compiler's pretty function name, as a translation context: "Foo" from "void Foo::bar(int)".
QByteArray trExtractContext(const char* prettyFunction);
