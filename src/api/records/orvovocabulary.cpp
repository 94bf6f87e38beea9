#include "records/orvovocabulary.h"

namespace {

constexpr OrvoRolesType::Enum rolesTypes[] = {
    OrvoRolesType::Container_, OrvoRolesType::Image_, OrvoRolesType::Audio_,  OrvoRolesType::Video_,
    OrvoRolesType::Playlist_,  OrvoRolesType::Query_, OrvoRolesType::Action_, OrvoRolesType::Value_,
};

} // namespace

QString OrvoRolesType::toString(Enum type)
{
    switch (type) {
    case None_:
        break;
    case Container_:
        return Container();
    case Image_:
        return Image();
    case Audio_:
        return Audio();
    case Video_:
        return Video();
    case Playlist_:
        return Playlist();
    case Query_:
        return Query();
    case Action_:
        return Action();
    case Value_:
        return Value();
    }
    return QString();
}

OrvoRolesType::Enum OrvoRolesType::fromString(const QString& text)
{
    for (Enum type : rolesTypes)
        if (toString(type) == text)
            return type;
    return None_;
}

QString OrvoRolesContainerType::toString(Enum type)
{
    switch (type) {
    case None_:
        break;
    case Context_:
        return QStringLiteral("context");
    case Form_:
        return QStringLiteral("form");
    }
    return QString();
}

OrvoRolesContainerType::Enum OrvoRolesContainerType::fromString(const QString& text)
{
    for (Enum type : {Context_, Form_})
        if (toString(type) == text)
            return type;
    return None_;
}

QString OrvoLogLevel::toString(Enum level)
{
    switch (level) {
    case Default:
        break;
    case Trace:
        return QStringLiteral("trace");
    case Debug:
        return QStringLiteral("debug");
    case Info:
        return QStringLiteral("info");
    case Warn:
        return QStringLiteral("warn");
    case Error:
        return QStringLiteral("error");
    case Fatal:
        return QStringLiteral("fatal");
    case Off:
        return QStringLiteral("off");
    }
    return QString();
}

OrvoLogLevel::Enum OrvoLogLevel::fromString(const QString& text)
{
    for (Enum level : {Trace, Debug, Info, Warn, Error, Fatal, Off})
        if (toString(level) == text.toLower())
            return level;
    return Default;
}
