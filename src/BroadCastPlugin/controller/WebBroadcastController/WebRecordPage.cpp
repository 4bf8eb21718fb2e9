#include "BroadCastPlugin/controller/WebBroadcastController/WebRecordPage.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaObject>
#include <QPointer>

#include <mutex>
#include <set>
#include <vector>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "framework/base/ErrorCode.h"
#include "framework/errortext/ErrorCodeTrans.h"

namespace BroadCastPlugin {

namespace {
// The pages alive now, for the auxiliary-screen notice. Pages live on the main thread; the lock keeps the
// set sound should a page be made elsewhere.
std::mutex& PagesMutex() {
    static std::mutex mutex;
    return mutex;
}
std::set<CWebRecordPage*>& Pages() {
    static std::set<CWebRecordPage*> pages;
    return pages;
}

QString ErrorAnswer(const QString& text) {
    QJsonObject answer{{"Records", QJsonArray()}, {"TotalCount", 0}, {"ErrorInfo", text}};
    return QString::fromUtf8(QJsonDocument(answer).toJson(QJsonDocument::Compact));
}

QString LastErrorText() {
    const std::string text = ErrorCodeTrans::GetErrorInfoByErrorCode(Tal::Base::Error::GetLastError());
    return text.empty() ? QStringLiteral("failed") : QString::fromStdString(text);
}
}  // namespace

CWebRecordPage::CWebRecordPage(QObject* parent) : QObject(parent) {
    pool_.setMaxThreadCount(1);
    std::lock_guard<std::mutex> lock(PagesMutex());
    Pages().insert(this);
}

CWebRecordPage::~CWebRecordPage() {
    {
        std::lock_guard<std::mutex> lock(PagesMutex());
        Pages().erase(this);
    }
    pool_.waitForDone();
}

QString CWebRecordPage::ListRecordsNow(const QString& criteriaJson) {
    QJsonParseError parseError;
    const QJsonDocument request = QJsonDocument::fromJson(criteriaJson.toUtf8(), &parseError);
    if (!criteriaJson.trimmed().isEmpty() &&
        (parseError.error != QJsonParseError::NoError || !request.isObject())) {
        return ErrorAnswer(QStringLiteral("the criteria are not a JSON object"));
    }
    const QJsonObject root = request.object();
    const QJsonObject criteria = root.value("SearchCriteria").toObject();
    BroadcastRecordQuery query;
    query.ElementID = criteria.value("ElementID").toInt(-1);
    query.StartTimeFrom = criteria.value("StartTimeFrom").toString().toStdString();
    query.StartTimeTo = criteria.value("StartTimeTo").toString().toStdString();
    query.PageIndex = root.value("PageIndex").toInt(-1);
    query.PageSize = root.value("PageSize").toInt(20);

    std::vector<BroadcastRecordEntry> records;
    int32_t total = 0;
    Tal::Base::Error::SetLastError(ErrorCode());
    if (!CBroadcastSession::GetBroadcastRecords(query, records, &total)) {
        BCAST_LOG(5, "[%s]List broadcast records failed.[%s(%d)]");
        return ErrorAnswer(LastErrorText());
    }
    QJsonArray list;
    for (const BroadcastRecordEntry& record : records) {
        QJsonArray speakers;
        for (const BroadcastRecordElement& element : record.Elements) {
            speakers.append(QJsonObject{{"ID", element.ID}, {"Name", QString::fromStdString(element.Name)}});
        }
        std::string url;
        // A record whose store cannot be reached is still listed; the page shows it cannot play.
        const bool playable = CMediaFileManager::Instance()->GetRecordPlayUrl(record, kPlayUrlSeconds, url);
        QJsonObject entry{{"RecordID", record.RecordID},
                          {"Speakers", speakers},
                          {"StartTime", QString::fromStdString(record.StartTime)},
                          {"Format", QString::fromStdString(record.Format)},
                          {"SizeKB", record.Size},
                          {"Bytes", static_cast<double>(record.Bytes)},
                          {"UserName", QString::fromStdString(record.UserName)},
                          {"BroadcastMode", record.BroadcastMode},
                          {"PlayUrl", QString::fromStdString(url)}};
        if (!playable) {
            entry.insert("PlayError", LastErrorText());
        }
        list.append(entry);
    }
    QJsonObject answer{{"Records", list}, {"TotalCount", total}, {"ErrorInfo", QString()}};
    return QString::fromUtf8(QJsonDocument(answer).toJson(QJsonDocument::Compact));
}

void CWebRecordPage::ListRecords(const QString& criteriaJson) {
    // Platform calls never run on the page's (the UI's) thread.
    pool_.start([this, criteriaJson] {
        const QString answer = ListRecordsNow(criteriaJson);
        QMetaObject::invokeMethod(
            this, [this, answer] { emit recordsListed(answer); }, Qt::QueuedConnection);
    });
}

void CWebRecordPage::SetRecordPageOnAuxScreen(bool onAuxScreen) {
    recordPageOnAuxScreen = onAuxScreen;
}

bool CWebRecordPage::IsRecordPageOnAuxScreen() const {
    return recordPageOnAuxScreen;
}

void CWebRecordPage::NotifyAuxScreenClosing() {
    std::vector<QPointer<CWebRecordPage>> pages;
    {
        std::lock_guard<std::mutex> lock(PagesMutex());
        for (CWebRecordPage* page : Pages()) {
            pages.emplace_back(page);
        }
    }
    for (const QPointer<CWebRecordPage>& page : pages) {
        if (page) {
            emit page->auxScreenClosing();
        }
    }
}

}  // namespace BroadCastPlugin
