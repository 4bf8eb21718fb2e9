// The speaker tree's model and filters without a platform: what the operator sees must follow the events.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QPushButton>
#include <QTabWidget>
#include <QTranslator>

#include "BroadCastPlugin/ui/model/ConsoleSite.h"
#include "BroadCastPlugin/ui/model/SpeakerFilterProxy.h"
#include "BroadCastPlugin/ui/model/SpeakerTreeModel.h"
#include "BroadCastPlugin/ui/panels/BroadcastConsole.h"

using namespace BroadCastPlugin;

namespace {
IPSpeakerNotifyParam Status(int32_t element, int32_t status, bool prompt = false) {
    IPSpeakerNotifyParam event;
    event.type = kNotifySpeakerStatus;
    event.elementID = element;
    event.speakerStatus = status;
    event.promptVoiceActive = prompt;
    return event;
}

void FillSite(CSpeakerTreeModel& model) {
    // 2 is in two partitions; 4 is in none and offline.
    model.SetSite({{1, "North"}, {2, "South"}}, {{1, "Hall", "10.0.0.1:80", "A", {1}, 70, true},
                                                 {2, "Corridor", "10.0.0.2:80", "A", {1, 2}, 60, true},
                                                 {3, "Gate", "10.0.0.3:80", "B", {2}, 90, true},
                                                 {4, "Yard", "10.0.0.4:80", "C", {}, 100, false}});
}
}  // namespace

TEST(SpeakerModel, OneSpeakerInTwoPartitionsIsChosenOnceAndStatesFollowEvents) {
    CSpeakerTreeModel model;
    FillSite(model);
    ASSERT_EQ(model.rowCount(), 3) << "two partitions and the group outside them";
    EXPECT_EQ(model.index(2, 0).data(CSpeakerTreeModel::kPartitionIdRole).toInt(),
              CSpeakerTreeModel::kNoPartition);

    // Ticking the speaker under "South" ticks it under "North" too; the partitions show the mix.
    const QModelIndex south = model.index(1, 0);
    const QModelIndex corridorSouth = model.index(0, 0, south);
    ASSERT_EQ(corridorSouth.data(CSpeakerTreeModel::kSpeakerIdRole).toInt(), 2);
    EXPECT_TRUE(model.setData(corridorSouth, Qt::Checked, Qt::CheckStateRole));
    EXPECT_EQ(model.CheckedIds(), std::vector<int32_t>({2}));
    EXPECT_EQ(model.index(1, 0, model.index(0, 0)).data(Qt::CheckStateRole).toInt(), Qt::Checked);
    EXPECT_EQ(model.index(0, 0).data(Qt::CheckStateRole).toInt(), Qt::PartiallyChecked);
    // A partition's box chooses all of it; unticking it drops the shared speaker from both places.
    model.setData(model.index(0, 0), Qt::Checked, Qt::CheckStateRole);
    EXPECT_EQ(model.CheckedIds(), std::vector<int32_t>({1, 2}));
    model.setData(model.index(0, 0), Qt::Unchecked, Qt::CheckStateRole);
    EXPECT_TRUE(model.CheckedIds().empty());

    // Connecting (prompt tone), playing, stopped; a failure keeps its error past the stop.
    EXPECT_EQ(model.StateOf(4), SpeakerLiveState::Offline);
    model.ApplyEvents({Status(1, kPushConnecting, true), Status(3, kPushConnecting)});
    EXPECT_EQ(model.StateOf(1), SpeakerLiveState::Connecting);
    EXPECT_EQ(model.index(0, CSpeakerTreeModel::kColumnState, model.index(0, 0)).data().toString(),
              "Prompt tone");
    IPSpeakerNotifyParam failed = Status(3, kPushFailed);
    failed.error = ErrorCode(1, 30, 7);
    EXPECT_EQ(model.ApplyEvents({Status(1, kPushPlaying), failed}), std::vector<int32_t>({1, 3}));
    EXPECT_EQ(model.StateOf(1), SpeakerLiveState::Playing);
    EXPECT_EQ(model.CountInState(SpeakerLiveState::Playing), 1);
    EXPECT_TRUE(model.ApplyEvents({Status(3, kPushStopped)}).empty()) << "a failure stays after the stop";
    EXPECT_EQ(model.StateOf(3), SpeakerLiveState::Failed);
    // An event for a speaker the site does not have changes nothing.
    EXPECT_TRUE(model.ApplyEvents({Status(99, kPushPlaying)}).empty());
    // The next broadcast forgets the old failure; a new site keeps the choice and states of those still
    // there.
    model.SetChecked({1, 3}, true);
    FillSite(model);
    EXPECT_EQ(model.CheckedIds(), std::vector<int32_t>({1, 3}));
    EXPECT_EQ(model.StateOf(1), SpeakerLiveState::Playing);
    model.ResetStates(true);
    EXPECT_EQ(model.StateOf(1), SpeakerLiveState::Idle);
    EXPECT_EQ(model.StateOf(3), SpeakerLiveState::Idle);
    // An offline push marks the speaker offline whatever its broadcast state.
    IPSpeakerNotifyParam offline;
    offline.type = kNotifyResourceStatus;
    offline.elementID = 2;
    offline.resourceStatus = kResourceOffline;
    model.ApplyEvents({offline});
    EXPECT_EQ(model.StateOf(2), SpeakerLiveState::Offline);
}

TEST(SpeakerModel, FiltersNarrowTheTreeAndAPartitionTickChoosesOnlyWhatIsShown) {
    CSpeakerTreeModel model;
    FillSite(model);
    CSpeakerFilterProxy proxy;
    proxy.setSourceModel(&model);
    EXPECT_EQ(proxy.VisibleSpeakerCount(), 4);

    // Text matches names and addresses, without case.
    proxy.SetText("corr");
    EXPECT_EQ(proxy.VisibleSpeakerCount(), 1);
    EXPECT_EQ(proxy.rowCount(), 2) << "the speaker shows under both its partitions";
    proxy.SetText("10.0.0.3");
    EXPECT_EQ(proxy.VisibleSpeakerCount(), 1);
    // Through the filter, a partition's box chooses only the speaker shown (Gate, not Corridor).
    ASSERT_EQ(proxy.rowCount(), 1);
    proxy.setData(proxy.index(0, 0), Qt::Checked, Qt::CheckStateRole);
    EXPECT_EQ(model.CheckedIds(), std::vector<int32_t>({3}));
    proxy.SetText("");

    // The state filter follows live changes.
    proxy.SetState(SpeakerLiveState::Playing);
    EXPECT_EQ(proxy.VisibleSpeakerCount(), 0);
    model.ApplyEvents({Status(1, kPushPlaying)});
    EXPECT_EQ(proxy.VisibleSpeakerCount(), 1);
    proxy.SetState(SpeakerLiveState::Offline);
    EXPECT_EQ(proxy.VisibleSpeakerCount(), 1);
    proxy.SetState(std::nullopt);

    // The partition filter keeps one partition; "only" keeps the listed speakers.
    proxy.SetPartition(2);
    EXPECT_EQ(proxy.rowCount(), 1);
    EXPECT_EQ(proxy.VisibleSpeakerCount(), 2);
    proxy.SetPartition(std::nullopt);
    proxy.SetOnly(std::vector<int32_t>{4});
    EXPECT_EQ(proxy.VisibleSpeakerCount(), 1);
    EXPECT_EQ(proxy.rowCount(), 1);
}

TEST(ConsoleTranslation, TheChineseTranslationReachesEveryPartOfTheConsole) {
    Q_INIT_RESOURCE(broadcast_translations);
    QTranslator translator;
    ASSERT_TRUE(translator.load(":/broadcast/i18n/broadcast_zh_CN.qm"))
        << "the translation is built into the module";
    QCoreApplication::installTranslator(&translator);
    {
        // Texts of the console's classes (each its own context) and of the shared state names.
        CConsoleSite site;
        CBroadcastConsole console(&site);
        EXPECT_EQ(console.findChild<QPushButton*>("TalkButton")->text(), QString::fromUtf8("\u558a\u8bdd"));
        EXPECT_EQ(console.Tabs()->tabText(CBroadcastConsole::kTabFile),
                  QString::fromUtf8("\u6587\u4ef6\u5e7f\u64ad(&F)"));
        EXPECT_EQ(console.findChild<QPushButton*>("StopAll")->text(),
                  QString::fromUtf8("\u5168\u90e8\u505c\u6b62"));
        EXPECT_EQ(StateText(SpeakerLiveState::Offline), QString::fromUtf8("\u79bb\u7ebf"));
    }
    QCoreApplication::removeTranslator(&translator);
    EXPECT_EQ(StateText(SpeakerLiveState::Offline), "Offline");
}
