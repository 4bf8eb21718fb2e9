#pragma once
// What the console shows of the site, read from the module's caches after the resource download: speakers
// and partitions, the broadcast configuration, the TTS languages, the media library, the devices that can
// take a device broadcast and the user's broadcast rights.

#include <QObject>
#include <QString>
#include <QThreadPool>

#include <vector>

#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"
#include "BroadCastPlugin/ui/model/SpeakerTreeModel.h"

namespace BroadCastPlugin {

struct ConsoleDevice {
    int32_t id = -1;
    QString name;
    QString address;
};

struct ConsoleRights {
    bool broadcast = true;      ///< files, text and listening
    bool realBroadcast = true;  ///< live talk
};

struct ConsoleSiteData {
    std::vector<ConsolePartition> partitions;
    std::vector<ConsoleSpeaker> speakers;
    BroadcastBaseConfig config;
    TTSLanguageInfo languages;
    std::vector<MediaDirectory> directories;
    std::vector<MediaFile> files;
    std::vector<ConsoleDevice> devices;
    ConsoleRights rights;
};

class CConsoleSite : public QObject {
    Q_OBJECT

public:
    explicit CConsoleSite(QObject* parent = nullptr);
    /// Waits for an address request in flight (bounded by the network time-out).
    ~CConsoleSite() override;

    /// Asks the controller to download the site's resources once, unless they are loaded or loading.
    void EnsureLoaded();
    /// Downloads the site's resources again.
    void Download();
    /// The controller's download progress: a finished download reloads the caches and the addresses.
    void OnDownloadResult(DownloadResourceState state);
    bool IsLoaded() const { return loaded_; }

    /// Reads the caches now (cheap: copies under their locks) and announces the result.
    void Reload();
    /// Asks the platform, off the UI thread, where each speaker's device is; Reload follows when done.
    void LoadAddresses();
    const ConsoleSiteData& Data() const { return data_; }

signals:
    void Changed();

private slots:
    void OnAddressesLoaded();

private:
    QThreadPool pool_;
    ConsoleSiteData data_;
    bool addressesLoading_ = false;
    bool loaded_ = false;
    bool downloading_ = false;
};

/// The user's rights as the login gave them.
ConsoleRights CurrentRights();

}  // namespace BroadCastPlugin
