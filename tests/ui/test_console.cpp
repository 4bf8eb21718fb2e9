// The operator console as an operator uses it: the real module (both start-up stages) logged in to the real
// platform, a virtual microphone, and the panel driven with clicks and keys.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionViewItem>
#include <QTabWidget>
#include <QTest>
#include <QTreeView>

#include "BroadCastPlugin/BroadCastPluginManager.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/ui/BroadCastWgtManager.h"
#include "BroadCastPlugin/ui/model/ConsoleSite.h"
#include "BroadCastPlugin/ui/panels/BroadcastPanel.h"
#include "BroadCastPlugin/ui/panels/SpeakerPicker.h"
#include "BroadCastPlugin/ui/panels/tabs/DeviceTab.h"
#include "BroadCastPlugin/ui/panels/tabs/FileTab.h"
#include "BroadCastPlugin/ui/panels/tabs/ListenTab.h"
#include "BroadCastPlugin/ui/panels/tabs/TextTab.h"
#include "BroadCastPlugin/ui/widgets/PromptBar.h"
#include "ManagerFixture.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/PlatformLogin.h"
#include "framework/business/StreamConfigManager.h"
#include "support/QtWait.h"

using namespace BroadCastPlugin;
using BcastTest::WaitFor;

namespace {
constexpr char kSentence[] = "Attention please. The north gate closes in ten minutes.";

CBroadCastPluginManager* Manager() {
    return CBroadCastPluginManager::Instance();
}

template <typename T>
T* Find(QWidget* root, const char* name) {
    T* found = root->findChild<T*>(name);
    EXPECT_NE(found, nullptr) << "no widget " << name;
    return found;
}
}  // namespace

class ConsoleTest : public BroadcastTest::CManagerTest {
protected:
    static void SetUpTestSuite() {
        StartProcesses();
        ASSERT_FALSE(HasFatalFailure());
        speech_ = new BcastTest::CTempDir("console-speech");
        sentence_ = new BcastTool::PcmAudio();
        MakeSpeech(speech_->File("sentence.wav"), kSentence, *sentence_);
        dataDir_ = PlatformTest::MakeTempDir("console-data");
        BusinessCommon::CFrameSystemConfigMgr::Instance()->SetVideoCaptureDataPath(dataDir_);
        BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath(dataDir_);
        ASSERT_TRUE(Login(PlatformTest::kUser, PlatformTest::kPassword));
        // Both start-up stages, as the host runs them: the controller, the API and the panels.
        ASSERT_TRUE(Manager()->Init("en_US"));
        ASSERT_TRUE(Manager()->InitInMainThread());
        panel_ = CBroadCastWgtManager::Instance()->GetBroadcastPanel();
        ASSERT_NE(panel_, nullptr);
        panel_->resize(1280, 760);
        panel_->show();
        ASSERT_TRUE(WaitFor([] { return CBroadCastWgtManager::Instance()->GetSite()->IsLoaded(); }, 30000))
            << "the site did not load";
    }
    static void TearDownTestSuite() {
        if (panel_ != nullptr) {
            panel_->Console()->StopAll();
            WaitFor([] { return panel_->Console()->Activity() == ConsoleActivity::None; }, 10000);
        }
        Manager()->StopWorking();
        Manager()->Uninit();
        panel_ = nullptr;
        BusinessCommon::LogoutFromPlatform();
        delete sentence_;
        delete speech_;
        StopProcesses();
    }
    void SetUp() override {
        ASSERT_NE(panel_, nullptr) << "the peers or the module did not start";
        Console()->Speakers()->ClearChecked();
    }
    void TearDown() override {
        Console()->StopAll();
        EXPECT_TRUE(WaitFor([] { return Console()->Activity() == ConsoleActivity::None; }, 15000));
    }

    static bool Login(const std::string& user, const std::string& password) {
        BusinessCommon::PlatformLoginRequest login;
        login.address = "127.0.0.1";
        login.port = std::stoi(platform_->RestUrl().substr(platform_->RestUrl().rfind(':') + 1));
        login.user = user;
        login.password = password;
        std::string error;
        const bool ok = BusinessCommon::LoginToPlatform(login, error);
        EXPECT_TRUE(ok) << error;
        return ok;
    }
    static CBroadcastConsole* Console() { return panel_->Console(); }
    static QTreeView* Tree() { return Console()->Picker()->Tree(); }

    /// The proxy index of a speaker row (the first place it is shown).
    static QModelIndex RowOf(int32_t elementId) {
        QAbstractItemModel* model = Tree()->model();
        for (int row = 0; row < model->rowCount(); ++row) {
            const QModelIndex partition = model->index(row, 0);
            for (int child = 0; child < model->rowCount(partition); ++child) {
                const QModelIndex index = model->index(child, 0, partition);
                if (index.data(CSpeakerTreeModel::kSpeakerIdRole).toInt() == elementId) {
                    return index;
                }
            }
        }
        return {};
    }
    /// Clicks the check box of a speaker's row, as the operator does.
    static void ClickCheckBox(int32_t elementId) {
        const QModelIndex index = RowOf(elementId);
        ASSERT_TRUE(index.isValid()) << "speaker " << elementId << " is not shown";
        Tree()->scrollTo(index);
        QStyleOptionViewItem option;
        option.initFrom(Tree());
        option.rect = Tree()->visualRect(index);
        option.features |= QStyleOptionViewItem::HasCheckIndicator | QStyleOptionViewItem::HasDecoration;
        const QRect box =
            Tree()->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &option, Tree());
        QTest::mouseClick(Tree()->viewport(), Qt::LeftButton, Qt::NoModifier, box.center());
    }
    static void ShowTab(CBroadcastConsole::Tab tab) {
        Console()->ShowTab(tab);
        QApplication::processEvents();
    }

    static CBroadcastPanel* panel_;
    static BcastTest::CTempDir* speech_;
    static BcastTool::PcmAudio* sentence_;
    static std::string dataDir_;
};

CBroadcastPanel* ConsoleTest::panel_ = nullptr;
BcastTest::CTempDir* ConsoleTest::speech_ = nullptr;
BcastTool::PcmAudio* ConsoleTest::sentence_ = nullptr;
std::string ConsoleTest::dataDir_;

TEST_F(ConsoleTest, TheTreeShowsTheSiteAndItsFiltersNarrowIt) {
    CSpeakerTreeModel* speakers = Console()->Speakers();
    EXPECT_EQ(speakers->SpeakerCount(), 7);
    EXPECT_EQ(Tree()->model()->rowCount(), 4) << "three partitions and the speakers outside them";
    EXPECT_EQ(speakers->StateOf(1007), SpeakerLiveState::Offline) << "the yard horn's terminal is offline";
    // The speakers' device addresses arrive after the site.
    EXPECT_TRUE(WaitFor(
        [] {
            return RowOf(1006)
                .siblingAtColumn(CSpeakerTreeModel::kColumnAddress)
                .data()
                .toString()
                .startsWith("127.0.0.1:");
        },
        10000));

    auto* search = Find<QLineEdit>(Console(), "SpeakerSearch");
    QTest::keyClicks(search, "gate");
    EXPECT_EQ(Console()->Picker()->Proxy()->VisibleSpeakerCount(), 2);
    auto* chosen = Find<QLabel>(Console(), "ChosenCount");
    EXPECT_TRUE(chosen->text().contains("(2 shown)")) << chosen->text().toStdString();
    search->clear();
    auto* state = Find<QComboBox>(Console(), "StateFilter");
    state->setCurrentIndex(state->findData(static_cast<int>(SpeakerLiveState::Offline)));
    EXPECT_EQ(Console()->Picker()->Proxy()->VisibleSpeakerCount(), 1);
    EXPECT_TRUE(RowOf(1007).isValid());
    state->setCurrentIndex(0);
    auto* partition = Find<QComboBox>(Console(), "PartitionFilter");
    partition->setCurrentIndex(partition->findText("Parking"));
    EXPECT_EQ(Console()->Picker()->Proxy()->VisibleSpeakerCount(), 1);
    EXPECT_TRUE(RowOf(1006).isValid());
    partition->setCurrentIndex(0);
    EXPECT_EQ(Console()->Picker()->Proxy()->VisibleSpeakerCount(), 7);
}

TEST_F(ConsoleTest, ALiveTalkToTwoClickedSpeakersGoesConnectingPlayingAndBackToIdle) {
    ShowTab(CBroadcastConsole::kTabTalk);
    auto* talk = Find<QPushButton>(Console(), "TalkButton");
    EXPECT_FALSE(talk->isEnabled()) << "nothing chosen yet";
    ClickCheckBox(1001);
    ClickCheckBox(1003);
    ASSERT_EQ(Console()->Targets(), std::vector<int32_t>({1001, 1003}));
    ASSERT_TRUE(talk->isEnabled());

    // Every state each speaker shows, in order.
    std::map<int32_t, std::vector<SpeakerLiveState>> seen;
    QObject watcher;
    QObject::connect(Console()->Speakers(), &CSpeakerTreeModel::StatesChanged, &watcher, [&seen] {
        for (int32_t id : {1001, 1003}) {
            const SpeakerLiveState now = Console()->Speakers()->StateOf(id);
            if (seen[id].empty() || seen[id].back() != now) {
                seen[id].push_back(now);
            }
        }
    });
    QTest::mouseClick(talk, Qt::LeftButton);
    ASSERT_EQ(Console()->Activity(), ConsoleActivity::Talk);
    ASSERT_TRUE(WaitFor(
        [] {
            return Console()->Speakers()->StateOf(1001) == SpeakerLiveState::Playing &&
                   Console()->Speakers()->StateOf(1003) == SpeakerLiveState::Playing;
        },
        20000));
    EXPECT_TRUE(WaitFor(
        [] { return Console()->Events().join("\n").contains("Speak now: the speakers are listening."); },
        10000))
        << Console()->Events().join("\n").toStdString();
    EXPECT_EQ(Find<QLabel>(Console(), "TalkRecord")->text(), QString::fromUtf8("\u25cf Recording this talk"))
        << "the demo site records live talks";
    EXPECT_TRUE(Find<QLabel>(Console(), "TalkState")->text().startsWith("On air at 2 of 2"))
        << Find<QLabel>(Console(), "TalkState")->text().toStdString();
    BcastTest::CBackgroundProcess speaker;
    ASSERT_TRUE(pulse_->StartPlaying(speech_->File("sentence.wav"), &speaker));
    EXPECT_EQ(Console()->Speakers()->CountInState(SpeakerLiveState::Playing), 2);
    speaker.Wait(20000);
    BcastTest::Settle(800);
    EXPECT_GT(Find<QLabel>(Console(), "TalkElapsed")->text(), QString("00:00"));

    QTest::mouseClick(talk, Qt::LeftButton);  // the toggle stops the talk
    ASSERT_TRUE(WaitFor([] { return Console()->Activity() == ConsoleActivity::None; }, 15000));
    for (int32_t id : {1001, 1003}) {
        SCOPED_TRACE("speaker " + std::to_string(id));
        // Idle before the talk, then connecting first.
        auto& states = seen[id];
        states.erase(states.begin(), std::find_if(states.begin(), states.end(), [](SpeakerLiveState s) {
                         return s != SpeakerLiveState::Idle;
                     }));
        ASSERT_GE(states.size(), 3u);
        EXPECT_EQ(states.front(), SpeakerLiveState::Connecting);
        EXPECT_NE(std::find(seen[id].begin(), seen[id].end(), SpeakerLiveState::Playing), seen[id].end());
        EXPECT_EQ(Console()->Speakers()->StateOf(id), SpeakerLiveState::Idle);
        EXPECT_GT(MatchOf(id, *sentence_).correlation, 0.5) << "the speaker heard the sentence";
    }
    EXPECT_FALSE(talk->isDown());
}

TEST_F(ConsoleTest, PushToTalkTalksWhileTheSpaceBarIsHeld) {
    ShowTab(CBroadcastConsole::kTabTalk);
    ClickCheckBox(1006);
    auto* pushToTalk = Find<QCheckBox>(Console(), "PushToTalk");
    pushToTalk->setChecked(true);
    auto* talk = Find<QPushButton>(Console(), "TalkButton");
    EXPECT_EQ(talk->text(), "Hold to talk");
    // The key goes to whatever has the focus in the console: here the speaker tree.
    Tree()->setFocus();
    QTest::keyPress(Tree(), Qt::Key_Space);
    ASSERT_EQ(Console()->Activity(), ConsoleActivity::Talk);
    EXPECT_TRUE(talk->isDown());
    EXPECT_EQ(Console()->Targets(), std::vector<int32_t>({1006}))
        << "the space bar did not tick the tree's row";
    ASSERT_TRUE(
        WaitFor([] { return Console()->Speakers()->StateOf(1006) == SpeakerLiveState::Playing; }, 20000));
    // A held key repeats: the repeats neither stop the talk nor reach the focused widget.
    QTest::keyPress(Tree(), Qt::Key_Space, Qt::NoModifier, -1);
    QKeyEvent repeat(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, " ", true);
    QApplication::sendEvent(Tree(), &repeat);
    EXPECT_EQ(Console()->Activity(), ConsoleActivity::Talk);
    QTest::keyRelease(Tree(), Qt::Key_Space);
    EXPECT_FALSE(talk->isDown());
    ASSERT_TRUE(WaitFor([] { return Console()->Activity() == ConsoleActivity::None; }, 15000));
    EXPECT_EQ(Console()->Speakers()->StateOf(1006), SpeakerLiveState::Idle);
    pushToTalk->setChecked(false);
    EXPECT_EQ(talk->text(), "Talk");
}

TEST_F(ConsoleTest, ATalkToDevicesShowsEachDevicesStateAndStops) {
    ShowTab(CBroadcastConsole::kTabDevice);
    CDeviceTab* devices = Console()->DeviceTab();
    // The gate encoder is in the registry (it carries speakers); the entrance camera is typed in by id.
    devices->ChooseDevices({201, 202});
    EXPECT_EQ(Find<QLineEdit>(Console(), "DeviceExtraIds")->text(), "202");
    ASSERT_EQ(devices->ChosenDevices(), std::vector<ResourceManager::ID>({201, 202}));
    QTest::mouseClick(Find<QPushButton>(Console(), "DeviceStartButton"), Qt::LeftButton);
    ASSERT_TRUE(devices->IsRunning());
    ASSERT_TRUE(WaitFor(
        [devices] {
            return devices->StateTextOf(201) == "Playing" && devices->StateTextOf(202) == "Playing";
        },
        20000))
        << devices->StateTextOf(201).toStdString() << " / " << devices->StateTextOf(202).toStdString();
    QTest::mouseClick(Find<QPushButton>(Console(), "DeviceStopButton"), Qt::LeftButton);
    ASSERT_TRUE(WaitFor([devices] { return !devices->IsRunning(); }, 15000));
    EXPECT_TRUE(Find<QPushButton>(Console(), "DeviceStartButton")->isEnabled());
    // The platform's record of the talk: both devices took it and heard audio.
    NetworkCommunication::CRapidJsonProto groups;
    groups.set_str(Control("GET", "/device-broadcasts").body);
    const std::string list = "/ResponseStatus/Data/Groups";
    ASSERT_EQ(groups.get_cnt(list), 1);
    EXPECT_FALSE(groups.get_bool_v(list + "[1]/Active", true));
    for (int i = 1; i <= 2; ++i) {
        EXPECT_GT(groups.get_int_v(list + "[1]/Devices[" + std::to_string(i) + "]/BytesReceived", 0), 0) << i;
    }
    devices->ChooseDevices({});
}

TEST_F(ConsoleTest, AFileFromTheLibraryIsDownloadedAndPlayedToTheEnd) {
    ShowTab(CBroadcastConsole::kTabFile);
    ClickCheckBox(1001);
    CFileTab* files = Console()->FileTab();
    ASSERT_TRUE(files->ChooseMediaFile(5)) << "night-watch is in the library";
    auto* play = Find<QPushButton>(Console(), "PlayFileButton");
    ASSERT_TRUE(play->isEnabled());
    QTest::mouseClick(play, Qt::LeftButton);  // downloads first, then plays
    ASSERT_TRUE(WaitFor([] { return Console()->Activity() == ConsoleActivity::File; }, 20000));
    // The play ends by itself once every speaker has its result.
    ASSERT_TRUE(WaitFor([] { return Console()->Activity() == ConsoleActivity::None; }, 30000));
    EXPECT_EQ(Console()->PromptBar()->Text(), "The file was played.");
    EXPECT_EQ(Console()->PromptBar()->Level(), "success");

    MediaFile file;
    ASSERT_TRUE(CBroadcastController::Instance()->GetMediaFile(5, file));
    BcastTool::PcmAudio local;
    BcastTool::PcmAudio reference;
    std::string error;
    ASSERT_TRUE(BcastTool::ReadWavMono(file.LocalPath, local, error)) << error;
    ASSERT_TRUE(BcastTool::ToRate(local, 8000, reference));
    EXPECT_GT(MatchOf(1001, reference).correlation, 0.8) << "the speaker played the library's file";
}

TEST_F(ConsoleTest, CustomTextReachesThePlatformsSpeechAndEachSpeakerShowsItsResult) {
    ShowTab(CBroadcastConsole::kTabText);
    ClickCheckBox(1002);
    ClickCheckBox(1007);  // offline: the platform refuses it
    auto* text = Find<QPlainTextEdit>(Console(), "TtsText");
    QTest::keyClicks(text, "The car park closes at midnight.");
    auto* language = Find<QComboBox>(Console(), "TtsLanguage");
    EXPECT_EQ(language->count(), 3);
    language->setCurrentIndex(language->findData("en-US"));
    QTest::mouseClick(Find<QPushButton>(Console(), "TtsPlayButton"), Qt::LeftButton);
    ASSERT_EQ(Console()->Activity(), ConsoleActivity::Text);
    ASSERT_TRUE(WaitFor([] { return Console()->TextTab()->ResultOf(1002) == "Finished"; }, 30000))
        << Console()->TextTab()->ResultOf(1002).toStdString();
    EXPECT_TRUE(Console()->TextTab()->ResultOf(1007).startsWith("Not played"))
        << Console()->TextTab()->ResultOf(1007).toStdString();
    ASSERT_TRUE(WaitFor([] { return Console()->Activity() == ConsoleActivity::None; }, 10000));

    // The platform was asked to say exactly that text in that language.
    const auto requests = Requests(Plugin("/RealTimeBroadcast/TTS"));
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requests.front().get_v("/RealTimeBroadcastTTSRequest/CustomContent"),
              "The car park closes at midnight.");
    EXPECT_EQ(requests.front().get_v("/RealTimeBroadcastTTSRequest/Language"), "en-US");
    EXPECT_GT(TotalSeconds(1002), 1.0) << "the speaker played the speech";
}

TEST_F(ConsoleTest, AListenStartsWithItsLevelAndStops) {
    ShowTab(CBroadcastConsole::kTabListen);
    auto* speaker = Find<QComboBox>(Console(), "ListenSpeaker");
    speaker->setCurrentIndex(speaker->findData(1001));
    auto* listen = Find<QPushButton>(Console(), "ListenButton");
    QTest::mouseClick(listen, Qt::LeftButton);
    auto* state = Find<QLabel>(Console(), "ListenState");
    ASSERT_TRUE(WaitFor([state] { return state->text() == "Listening to Hall A."; }, 20000))
        << state->text().toStdString();
    EXPECT_EQ(listen->text(), "Stop listening");
    // An idle speaker plays its idle tone, which is what the operator hears.
    auto* level = Find<QProgressBar>(Console(), "ListenLevel");
    EXPECT_TRUE(WaitFor([level] { return level->value() > 0; }, 10000)) << "the level meter moved";
    QTest::mouseClick(listen, Qt::LeftButton);
    ASSERT_TRUE(WaitFor([state] { return state->text() == "Not listening."; }, 10000))
        << state->text().toStdString();
    EXPECT_EQ(level->value(), 0);
}

TEST_F(ConsoleTest, AUserWithoutTheLiveRightCannotTalkButMayPlayText) {
    ASSERT_TRUE(Login("guard", "Guard#2026"));
    CBroadCastWgtManager::Instance()->GetSite()->Reload();
    ShowTab(CBroadcastConsole::kTabTalk);
    ClickCheckBox(1001);
    auto* talk = Find<QPushButton>(Console(), "TalkButton");
    EXPECT_FALSE(talk->isEnabled());
    EXPECT_TRUE(Find<QLabel>(Console(), "TalkDenied")->isVisible());
    // Push-to-talk cannot go around it either.
    Find<QCheckBox>(Console(), "PushToTalk")->setChecked(true);
    QTest::keyPress(talk, Qt::Key_Space);
    QTest::keyRelease(talk, Qt::Key_Space);
    EXPECT_EQ(Console()->Activity(), ConsoleActivity::None);
    Find<QCheckBox>(Console(), "PushToTalk")->setChecked(false);
    EXPECT_FALSE(Find<QPushButton>(Console(), "DeviceStartButton")->isEnabled());
    ShowTab(CBroadcastConsole::kTabText);
    QTest::keyClicks(Find<QPlainTextEdit>(Console(), "TtsText"), "Hello");
    EXPECT_TRUE(Find<QPushButton>(Console(), "TtsPlayButton")->isEnabled());
    Find<QPlainTextEdit>(Console(), "TtsText")->clear();

    ASSERT_TRUE(Login(PlatformTest::kUser, PlatformTest::kPassword));
    CBroadCastWgtManager::Instance()->GetSite()->Reload();
    ShowTab(CBroadcastConsole::kTabTalk);
    EXPECT_TRUE(talk->isEnabled());
}

TEST_F(ConsoleTest, APopUpRequestPrefillsTheDialog) {
    // "data" is lower case; 4242 is not on the site and is named from ResourceName.
    Manager()->PopBroadcastPannel(CBroadCastPluginManager::ParsePopPannelJson(
        R"({"BroadCast":{"Type":2,"data":"1001,1003,4242","ResourceName":"Hall A,Lobby,Back door","Volume":40,"BroadCastStyle":"compact"}})",
        nullptr));
    CBroadcastPopDialog* dialog = CBroadCastWgtManager::Instance()->GetPopDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_TRUE(Manager()->IsBoradCastToolUIShow());
    EXPECT_EQ(dialog->Console()->Targets(), std::vector<int32_t>({1001, 1003}));
    EXPECT_EQ(dialog->Console()->Tabs()->currentIndex(), CBroadcastConsole::kTabText);
    EXPECT_EQ(dialog->Console()->Picker()->Proxy()->VisibleSpeakerCount(), 2)
        << "a style shows only the request";
    EXPECT_EQ(dialog->Request(), "Speak a text to Hall A, Lobby, volume 40");
    EXPECT_EQ(dialog->Console()->PromptBar()->Text(), "Not on this site: Back door");
    EXPECT_EQ(dialog->Console()->PromptBar()->Level(), "remind");
    EXPECT_TRUE(Console()->Targets().empty()) << "the panel's own choice is its own";
    EXPECT_EQ(dialog->Console()->ListenTab()->Volume(), 40);
    EXPECT_EQ(CIPSpeakerManager::Instance()->GetListenVolume(), 40)
        << "the request's volume is what is heard";
    dialog->Console()->ListenTab()->SetVolume(100);

    // Without a style the whole tree is shown with the request chosen.
    Manager()->PopBroadcastPannel(
        CBroadCastPluginManager::ParsePopPannelJson(R"({"BroadCast":{"Type":0,"data":"1002"}})", nullptr));
    EXPECT_EQ(dialog->Console()->Targets(), std::vector<int32_t>({1002}));
    EXPECT_EQ(dialog->Console()->Picker()->Proxy()->VisibleSpeakerCount(), 7);
    EXPECT_EQ(dialog->Console()->Tabs()->currentIndex(), CBroadcastConsole::kTabTalk);
    dialog->close();
    EXPECT_FALSE(Manager()->IsBoradCastToolUIShow() && dialog->isVisible());
}
