#pragma once
// Download-task records exchanged with the download-centre plugin.

#include <mutex>
#include <string>

namespace BusinessCommon {

/// Parameters of one download task as the download centre shows and resumes it.
struct CDownloadTaskParam {
    std::string taskName;
    std::string url;
    std::string savePath;
    std::string pluginId;  ///< the plugin that owns and resumes the task
    std::string resumeXml;
    int openType = 0;
    bool showRemainingTime = true;
    bool showSpeed = true;
    bool showPercentage = true;
    bool restartAllowed = true;

    /// A task can be resumed when it names its owner and where its data goes.
    bool IsValid() const { return !pluginId.empty() && !savePath.empty(); }
};

/// A download task held by the download centre; plugins re-arm it with their own parameters.
class CDownloadTaskBase {
public:
    virtual ~CDownloadTaskBase() = default;
    CDownloadTaskParam GetDownloadTaskParam() const;
    /// Stores the parameters; `flags` is reserved (0).
    void SetDownloadTaskParam(const CDownloadTaskParam& param, int flags);

private:
    mutable std::mutex mutex_;
    CDownloadTaskParam param_;
};

}  // namespace BusinessCommon
