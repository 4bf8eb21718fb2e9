#pragma once
// What the recording web page asks of the module: the recordings registered at the platform, each with an
// address the browser plays straight from the object store, and the auxiliary-screen state of the page.

#include <QObject>
#include <QString>
#include <QThreadPool>

namespace BroadCastPlugin {

class CWebRecordPage : public QObject {
    Q_OBJECT

public:
    /// How long a play address stays valid.
    static constexpr int kPlayUrlSeconds = 3600;

    explicit CWebRecordPage(QObject* parent = nullptr);
    /// Waits for a listing in progress (bounded by the network time-out).
    ~CWebRecordPage() override;

    /// Lists the recordings off the UI thread; `recordsListed` answers. `criteriaJson`:
    /// {"SearchCriteria":{"ElementID":1001,"StartTimeFrom":"..","StartTimeTo":".."},"PageIndex":1,"PageSize":20},
    /// every key optional.
    Q_INVOKABLE void ListRecords(const QString& criteriaJson);
    /// The page says it is shown on the client's auxiliary screen (or no longer).
    Q_INVOKABLE void SetRecordPageOnAuxScreen(bool onAuxScreen);
    Q_INVOKABLE bool IsRecordPageOnAuxScreen() const;

    /// Builds the answer of ListRecords (on the calling thread; a platform call).
    static QString ListRecordsNow(const QString& criteriaJson);
    /// The client closes the auxiliary screen of the recording page: every page hears `auxScreenClosing`.
    static void NotifyAuxScreenClosing();

signals:
    /// {"Records":[{"RecordID","Speakers":[{"ID","Name"}],"StartTime","Format","SizeKB","Bytes","UserName",
    /// "BroadcastMode","PlayUrl"}],"TotalCount":n,"ErrorInfo":""}; on failure "Records" is empty and
    /// "ErrorInfo" says why.
    void recordsListed(const QString& answer);
    void auxScreenClosing();

private:
    QThreadPool pool_;
};

}  // namespace BroadCastPlugin
