#include "core/model/cmroles.h"

#include "records/orvoroles.h"

QStringList CMAllRoles()
{
    static const QStringList roles{
        OrvoRoles::Path(),
        OrvoRoles::Title(),
        OrvoRoles::Description(),
        OrvoRoles::LongDescription(),
        OrvoRoles::Type(),
        OrvoRoles::ContainerType(),
        OrvoRoles::AlbumType(),
        OrvoRoles::AudioType(),
        OrvoRoles::ImageType(),
        OrvoRoles::VideoType(),
        OrvoRoles::Modifiable(),
        OrvoRoles::Disabled(),
        OrvoRoles::Icon(),
        OrvoRoles::Flags(),
        OrvoRoles::Value(),
        OrvoRoles::MediaData(),
        OrvoRoles::Edit(),
        OrvoRoles::ValueUnit(),
        OrvoRoles::Id(),
        OrvoRoles::Search(),
        OrvoRoles::Activity(),
        OrvoRoles::Cancel(),
        OrvoRoles::Accept(),
        OrvoRoles::Context(),
        OrvoRoles::Risky(),
        OrvoRoles::Preferred(),
        OrvoRoles::Rating(),
        OrvoRoles::FillParent(),
        OrvoRoles::Timestamp(),
        OrvoRoles::AutoCompletePath(),
        OrvoRoles::BusyText(),
        OrvoRoles::RenderAsButton(),
        OrvoRoles::DoNotTrack(),
        OrvoRoles::PersistentMetaData(),
        OrvoRoles::ContainerPlayable(),
        OrvoRoles::ReleaseDate(),
        OrvoRoles::PersonType(),
        OrvoRoles::EpgType(),
        OrvoRoles::DefaultValue(),
        OrvoRoles::SortKey(),
        OrvoRoles::UnknownSize(),
    };
    return roles;
}
