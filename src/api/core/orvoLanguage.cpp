#include "core/orvoLanguage.h"

#include "core/orvoLog_p.h"

#include <QCoreApplication>
#include <QMutexLocker>
#include <QTranslator>

#include <ostream>

namespace {

ORVO_LOGGER("Language")

class StringArg : public TrArg::ArgData
{
public:
    StringArg(const QString& value, int fieldWidth, QChar fillChar)
        : m_fieldWidth(fieldWidth), m_fillChar(fillChar), m_value(value)
    {}
    QString apply(const QString& text) const override { return text.arg(m_value, m_fieldWidth, m_fillChar); }

private:
    int m_fieldWidth;
    QChar m_fillChar;
    QString m_value;
};

template <typename T>
class IntegerArg : public TrArg::ArgData
{
public:
    IntegerArg(T value, int fieldWidth, int base, QChar fillChar)
        : m_fieldWidth(fieldWidth), m_base(base), m_fillChar(fillChar), m_value(value)
    {}
    QString apply(const QString& text) const override { return text.arg(m_value, m_fieldWidth, m_base, m_fillChar); }

private:
    int m_fieldWidth;
    int m_base;
    QChar m_fillChar;
    T m_value;
};

using IntArg = IntegerArg<int>;
using UIntArg = IntegerArg<unsigned int>;
using LongArg = IntegerArg<long>;
using ULongArg = IntegerArg<unsigned long>;
using LongLongArg = IntegerArg<long long>;
using ULongLongArg = IntegerArg<unsigned long long>;
using ShortArg = IntegerArg<short>;
using UShortArg = IntegerArg<unsigned short>;

template <typename T>
class CharacterArg : public TrArg::ArgData
{
public:
    CharacterArg(T value, int fieldWidth, QChar fillChar)
        : m_fieldWidth(fieldWidth), m_fillChar(fillChar), m_value(value)
    {}
    QString apply(const QString& text) const override { return text.arg(m_value, m_fieldWidth, m_fillChar); }

private:
    int m_fieldWidth;
    QChar m_fillChar;
    T m_value;
};

using QCharArg = CharacterArg<QChar>;
using CharArg = CharacterArg<char>;

class DoubleArg : public TrArg::ArgData
{
public:
    DoubleArg(double value, int fieldWidth, char format, int precision, QChar fillChar)
        : m_fieldWidth(fieldWidth), m_format(format), m_precision(precision), m_fillChar(fillChar), m_value(value)
    {}
    QString apply(const QString& text) const override
    {
        return text.arg(m_value, m_fieldWidth, m_format, m_precision, m_fillChar);
    }

private:
    int m_fieldWidth;
    char m_format;
    int m_precision;
    QChar m_fillChar;
    double m_value;
};

class StringsArg : public TrArg::ArgData
{
public:
    explicit StringsArg(const QStringList& values) : m_values(values) {}

    QString apply(const QString& text) const override
    {
        const QStringList& v = m_values;
        switch (v.size()) {
        case 2:
            return text.arg(v[0], v[1]);
        case 3:
            return text.arg(v[0], v[1], v[2]);
        case 4:
            return text.arg(v[0], v[1], v[2], v[3]);
        case 5:
            return text.arg(v[0], v[1], v[2], v[3], v[4]);
        case 6:
            return text.arg(v[0], v[1], v[2], v[3], v[4], v[5]);
        case 7:
            return text.arg(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
        case 8:
            return text.arg(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]);
        default:
            return text.arg(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
        }
    }

private:
    QStringList m_values;
};

} // namespace

TrArg::ArgData::~ArgData() = default;

QString TrArg::ArgData::apply(const QString& text) const
{
    return text;
}

TrArg::TrArg() : d(new ArgData) {}

TrArg::TrArg(const QString& value, int fieldWidth, const QChar& fillChar)
    : d(new StringArg(value, fieldWidth, fillChar))
{}

TrArg::TrArg(int value, int fieldWidth, int base, const QChar& fillChar)
    : d(new IntArg(value, fieldWidth, base, fillChar))
{}

TrArg::TrArg(unsigned int value, int fieldWidth, int base, const QChar& fillChar)
    : d(new UIntArg(value, fieldWidth, base, fillChar))
{}

TrArg::TrArg(long value, int fieldWidth, int base, const QChar& fillChar)
    : d(new LongArg(value, fieldWidth, base, fillChar))
{}

TrArg::TrArg(unsigned long value, int fieldWidth, int base, const QChar& fillChar)
    : d(new ULongArg(value, fieldWidth, base, fillChar))
{}

TrArg::TrArg(long long value, int fieldWidth, int base, const QChar& fillChar)
    : d(new LongLongArg(value, fieldWidth, base, fillChar))
{}

TrArg::TrArg(unsigned long long value, int fieldWidth, int base, const QChar& fillChar)
    : d(new ULongLongArg(value, fieldWidth, base, fillChar))
{}

TrArg::TrArg(short value, int fieldWidth, int base, const QChar& fillChar)
    : d(new ShortArg(value, fieldWidth, base, fillChar))
{}

TrArg::TrArg(unsigned short value, int fieldWidth, int base, const QChar& fillChar)
    : d(new UShortArg(value, fieldWidth, base, fillChar))
{}

TrArg::TrArg(QChar value, int fieldWidth, const QChar& fillChar) : d(new QCharArg(value, fieldWidth, fillChar)) {}

TrArg::TrArg(char value, int fieldWidth, const QChar& fillChar) : d(new CharArg(value, fieldWidth, fillChar)) {}

TrArg::TrArg(double value, int fieldWidth, char format, int precision, const QChar& fillChar)
    : d(new DoubleArg(value, fieldWidth, format, precision, fillChar))
{}

TrArg::TrArg(const QStringList& values) : d(new StringsArg(values)) {}

TrArg::~TrArg() = default;

QString TrArg::apply(const QString& text) const
{
    return d->apply(text);
}

QString TrArg::applyArgs(const QString& text, const QList<TrArg>& args)
{
    QString result = text;
    for (const TrArg& arg : args)
        result = arg.apply(result);
    return result;
}

TrString::Data::~Data() = default;

QString TrString::Data::toString() const
{
    if (!translatable)
        return text;
    const QString translation = Language::ntr(*this);
    return args.isEmpty() ? translation : TrArg::applyArgs(translation, args);
}

TrString::TrString() : d(new Data) {}

TrString::TrString(const char* text) : TrString(QString::fromUtf8(text)) {}

TrString::TrString(const QString& text) : d(new Data)
{
    d->text = text;
}

TrString::TrString(const TrCharData& source, const QList<TrArg>& args) : d(new Data)
{
    d->context = source.context;
    d->sourceText = source.sourceText;
    d->disambiguation = source.disambiguation;
    d->n = source.n;
    d->translatable = true;
    d->args = args;
}

TrString::TrString(const TrCharData& source, const TrArg& arg) : TrString(source, QList<TrArg>{arg}) {}

QString TrString::toString() const
{
    const Data* const data = d.constData();
    if (!data->translatable)
        return data->text;

    Language* const language = Language::instance();
    const QMutexLocker locker(&language->m_mutex);
    if (data->version != language->m_version) {
        data->text = data->toString();
        data->version = language->m_version;
    }
    return data->text;
}

void TrString::setArgs(const QList<TrArg>& args)
{
    // Detaching copies the kept translation, which toString() of another copy may be writing.
    const QMutexLocker locker(Language::instance()->mutex());
    d->args = args;
}

void TrString::setArgs(int n, const QList<TrArg>& args)
{
    const QMutexLocker locker(Language::instance()->mutex());
    d->n = n;
    d->args = args;
}

void TrString::setArg(const TrArg& arg)
{
    setArgs(QList<TrArg>{arg});
}

void TrString::setArg(int n, const TrArg& arg)
{
    setArgs(n, QList<TrArg>{arg});
}

std::ostream& TrString::print(std::ostream& stream) const
{
    return ::operator<<(stream, toString());
}

Language::Language() : m_translator(new QTranslator), m_mutex(QMutex::Recursive) {}

Language::~Language() = default;

Language* Language::instance()
{
    static auto* const s_instance = new Language;
    return s_instance;
}

int Language::version() const
{
    const QMutexLocker locker(&m_mutex);
    return m_version;
}

bool Language::loadTranslations(QString language)
{
    static const QString s_program = QCoreApplication::applicationDirPath();
    static const QStringList s_directories{QString(), s_program + QLatin1String("/translations/"),
                                           s_program + QLatin1String("/../../translations/")};
    LOG4CPLUS_DEBUG(logger(), "Loading translations for " << language);

    bool loaded = false;
    {
        const QMutexLocker locker(&m_mutex);
        QCoreApplication::removeTranslator(m_translator.get());
        for (const QString& directory : s_directories) {
            const QString file = directory + QLatin1String("orvo_") + language;
            LOG4CPLUS_DEBUG(logger(), "loadTranslations: Trying to load '" << file << "'");
            loaded = m_translator->load(file);
            if (loaded) {
                LOG4CPLUS_DEBUG(logger(), "loadTranslations: Loaded translation file '" << file << "'");
                break;
            }
        }
        // Also without a file: the translator is empty then, and every text is its source text.
        QCoreApplication::installTranslator(m_translator.get());
        ++m_version;
    }
    emit languageChanged();
    return loaded;
}

QString Language::ntr(const TrCharData& source)
{
    const QMutexLocker locker(instance()->mutex());
    return QCoreApplication::translate(source.context, source.sourceText, source.disambiguation, source.n);
}

QString Language::ntr(const TrString::Data& source)
{
    const QMutexLocker locker(instance()->mutex());
    return QCoreApplication::translate(source.context.constData(), source.sourceText.constData(),
                                       source.disambiguation.constData(), source.n);
}

QByteArray trExtractContext(const char* prettyFunction)
{
    QByteArray context(prettyFunction);
    const int parenthesis = context.indexOf('(');
    if (parenthesis >= 0)
        context.truncate(parenthesis);
    const int scope = context.lastIndexOf("::");
    if (scope >= 0) {
        context.truncate(scope);
        context.remove(0, context.lastIndexOf(' ') + 1);
    }
    return context;
}
