#include "player.h"

#include "core/model/cmnodes.h"
#include "core/model/cmroot.h"
#include "core/orvoJson.h"
#include "records/orvoconstants.h"
#include "records/orvoerror.h"
#include "serviceprocess.h"

#include <QFile>
#include <QSaveFile>
#include <QUrl>

#include <algorithm>
#include <cmath>
#include <iostream>

namespace {

constexpr int maxVolume = 50;
constexpr int firstVolume = 20;
constexpr double lowestDecibels = -60;

/// Decibels by volume: fine steps where it is loud, and coarse ones where it is not.
QList<double> volumeMap()
{
    QList<double> map;
    for (int volume = 0; volume <= maxVolume; ++volume) {
        const double quiet = 1 - double(volume) / maxVolume;
        map.append(std::round(10 * lowestDecibels * std::pow(quiet, 1.5)) / 10);
    }
    return map;
}

CMError failure(const QString& text)
{
    return CMError(CMError::DefaultName(), text, CMError::DefaultTitle());
}

} // namespace

Player::Player(CMNodesWorker* tree, const QString& sinkUri, const QString& stateFile)
    : m_playback(sinkUri), m_stateFile(stateFile), m_map(volumeMap())
{
    CMListRowsNode* root = CMListRowsNode::create(tree->nodes(), tree->prefixPath());
    root->setTitle(TrString("Player"));
    const auto add = [&](const char* base, const char* title, const OrvoValue& value) {
        CMValueNode* node = addValue(tree, QLatin1String(base), title, value);
        root->rowsAppend(node->path());
        return node;
    };
    m_volume = add("volume", "Volume", OrvoValue().setI32_(firstVolume));
    m_volume->setEdit(OrvoEdit().setMin(QStringLiteral("0")).setMax(QString::number(maxVolume)));
    m_mute = add("mute", "Mute", OrvoValue().setBool_(false));
    m_attenuation = add("attenuation", "Attenuation", OrvoValue().setDouble_(m_map.at(firstVolume)));
    m_attenuation->setEdit(OrvoEdit().setMin(QString::number(m_map.first())).setMax(QString::number(m_map.last())));
    add("volumeMap", "Attenuation by volume", OrvoValue().setDoubleList(m_map))->setReadOnly(true);
    m_state = add("state", "State", OrvoValue().setString_(QStringLiteral("stopped")));
    m_state->setReadOnly(true);
    m_current = add("current", "Row that plays", OrvoValue().setString_(QString()));
    m_current->setReadOnly(true);
    m_position = add("position", "Position", OrvoValue().setI64_(0));
    m_position->setReadOnly(true);

    m_queue = CMListRowsNode::create(tree->nodes(), tree->addPrefix(QStringLiteral("queue")));
    m_queue->setTitle(TrString("Queue"));
    root->rowsAppend(m_queue->path());
    const auto addAction = [&](const char* base, const char* title, const char* slot) {
        auto* node = CMActivateNode::create(tree->nodes(), tree->addPrefix(QLatin1String(base)), this, slot);
        node->setTitle(TrString(title));
        root->rowsAppend(node->path());
    };
    addAction("play", "Play", SLOT(on_play_invoked(CMSetDataRequest)));
    addAction("pause", "Pause", SLOT(on_pause_invoked(CMSetDataRequest)));
    addAction("next", "Next", SLOT(on_next_invoked(CMSetDataRequest)));
    addAction("add", "Add a track", SLOT(on_add_invoked(CMSetDataRequest)));
    addAction("clear", "Empty the queue", SLOT(on_clear_invoked(CMSetDataRequest)));

    load();
    soundChanged();
    connect(m_volume, &CMValueNode::valueChanged, this, &Player::on_volume_changed);
    connect(m_attenuation, &CMValueNode::valueChanged, this, &Player::on_attenuation_changed);
    connect(m_mute, &CMValueNode::valueChanged, this, &Player::soundChanged);
    connect(&m_playback, &Playback::finished, this, &Player::on_playback_finished);
    m_positionTimer.setInterval(500);
    connect(&m_positionTimer, &QTimer::timeout, this, &Player::update);
}

void Player::on_volume_changed()
{
    m_attenuation->setValue(OrvoValue().setDouble_(m_map.at(m_volume->value().i32_())));
    soundChanged();
}

/// The attenuation of the nearest step; the volume follows it, and it the volume.
void Player::on_attenuation_changed()
{
    const double wanted = m_attenuation->value().double_();
    const auto nearest = std::min_element(m_map.cbegin(), m_map.cend(), [wanted](double a, double b) {
        return std::abs(a - wanted) < std::abs(b - wanted);
    });
    const int volume = int(nearest - m_map.cbegin());
    if (volume != m_volume->value().i32_())
        m_volume->setValue(OrvoValue().setI32_(volume));
    else
        m_attenuation->setValue(OrvoValue().setDouble_(*nearest));
}

void Player::soundChanged()
{
    const double decibels = m_map.at(m_volume->value().i32_());
    const bool silent = m_mute->value().bool_() || m_volume->value().i32_() == 0;
    m_playback.setGain(silent ? 0 : std::pow(10, decibels / 20));
    save();
}

void Player::load()
{
    QFile file(m_stateFile);
    if (m_stateFile.isEmpty() || !file.open(QIODevice::ReadOnly))
        return;
    OrvoError error;
    const QVariantHash state = OrvoJson::parse(file.readAll(), error).toHash();
    if (!error.isEmpty()) {
        std::cerr << "player: " << m_stateFile.toStdString() << ": " << error.message().toStdString() << std::endl;
        return;
    }
    const int volume = qBound(0, state.value(QStringLiteral("volume"), firstVolume).toInt(), maxVolume);
    m_volume->setValue(OrvoValue().setI32_(volume));
    m_attenuation->setValue(OrvoValue().setDouble_(m_map.at(volume)));
    m_mute->setValue(OrvoValue().setBool_(state.value(QStringLiteral("mute")).toBool()));
}

void Player::save() const
{
    if (m_stateFile.isEmpty())
        return;
    QSaveFile file(m_stateFile);
    const QVariantHash state{{QStringLiteral("volume"), m_volume->value().i32_()},
                             {QStringLiteral("mute"), m_mute->value().bool_()}};
    if (!file.open(QIODevice::WriteOnly) || file.write(OrvoJson::serializePretty(state)) < 0 || !file.commit())
        std::cerr << "player: cannot write " << m_stateFile.toStdString() << std::endl;
}

void Player::on_add_invoked(CMSetDataRequest request)
{
    const CMPath path = CMPath::fromQVariant(request.value());
    if (path.prefix().isEmpty()) {
        request.reply().setError(failure(QStringLiteral("The path of a track is needed")));
        return;
    }
    CMRoot()
        ->getData(path, {OrvoRoles::Title(), OrvoRoles::MediaData()})
        .onSuccess([this, path, request](const QVariantList& values) {
            OrvoRoles track;
            track.setTitle(values.value(0).toString());
            OrvoMediaData mediaData;
            mediaData.__setVariant(values.value(1));
            track.setMediaData(mediaData);
            append(path, track, request);
        })
        .onError([request](const CMError& error) { request.reply().setError(error); });
}

void Player::append(const CMPath& path, const OrvoRoles& track, const CMSetDataRequest& request)
{
    if (!QUrl(track.mediaData().url()).isLocalFile()) {
        request.reply().setError(failure(QStringLiteral("No sound file is behind %1").arg(path.toEncoded())));
        return;
    }
    const QString id = QString::number(++m_lastId);
    m_queue->rowsAppend(OrvoRoles(track).setId(id).setPath(path).setType(OrvoRolesType::Audio_));
    request.reply().setValue(id);
}

void Player::on_clear_invoked(CMSetDataRequest request)
{
    m_playback.close();
    m_queue->rowsClear();
    update();
    request.reply().setValue(QVariant());
}

bool Player::playRow(int row)
{
    // Rows whose file cannot be read are passed over.
    for (; row < m_queue->rowsSize(); ++row) {
        const OrvoRoles track = m_queue->getRowRoles(row);
        const QString fileName = QUrl(track.mediaData().url()).toLocalFile();
        const QString error = m_playback.open(fileName);
        if (!error.isEmpty()) {
            std::cerr << "player: " << fileName.toStdString() << ": " << error.toStdString() << std::endl;
            continue;
        }
        m_current->setValue(OrvoValue().setString_(track.id()));
        m_playback.start();
        update();
        return true;
    }
    m_playback.close();
    update();
    return false;
}

void Player::on_play_invoked(CMSetDataRequest request)
{
    const QString id = request.value().type() == QVariant::Bool ? QString() : request.value().toString();
    const int row = id.isEmpty() ? 0 : m_queue->rowsIndexById(id);
    if (id.isEmpty() && m_playback.isOpen()) {
        m_playback.start();
        update();
    } else if (row < 0 || !playRow(row)) {
        request.reply().setError(failure(QStringLiteral("There is nothing to play")));
        return;
    }
    request.reply().setValue(m_current->value().string_());
}

void Player::on_pause_invoked(CMSetDataRequest request)
{
    m_playback.pause();
    update();
    request.reply().setValue(QVariant());
}

void Player::on_next_invoked(CMSetDataRequest request)
{
    on_playback_finished();
    request.reply().setValue(m_current->value().string_());
}

void Player::on_playback_finished()
{
    playRow(m_queue->rowsIndexById(m_current->value().string_()) + 1);
}

void Player::update()
{
    const bool playing = m_playback.isPlaying();
    const char* state = playing ? "playing" : m_playback.isOpen() ? "paused" : "stopped";
    if (!m_playback.isOpen())
        m_current->setValue(OrvoValue().setString_(QString()));
    m_state->setValue(OrvoValue().setString_(QLatin1String(state)));
    m_position->setValue(OrvoValue().setI64_(m_playback.position()));
    if (playing)
        m_positionTimer.start();
    else
        m_positionTimer.stop();
}
