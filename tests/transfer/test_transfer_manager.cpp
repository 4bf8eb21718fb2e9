// The transfer manager's queues, pacing, back-pressure and lifecycle, on a virtual clock with recording
// transports standing in for the three back ends.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpFanout.h"
#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"
#include "VirtualClock.h"
#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"

using namespace BroadCastPlugin;
using TransferTest::CVirtualClock;
using namespace std::chrono_literals;

namespace {

/// Holds senders at a chosen frame until the test opens it.
class CGate {
public:
    void CloseAt(int frame) {
        std::lock_guard<std::mutex> lock(mutex_);
        closedAt_ = frame;
    }
    /// Called by the sender with the frame's index; blocks when the gate is closed at that index.
    void Pass(int frame) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (frame != closedAt_) {
            return;
        }
        blocked_ = true;
        changed_.notify_all();
        changed_.wait(lock, [&] { return open_; });
    }
    bool WaitBlocked(std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return blocked_; });
    }
    void Open() {
        std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int closedAt_ = -1;
    bool blocked_ = false;
    bool open_ = false;
};

/// What a fake transport saw.
struct Record {
    std::mutex mutex;
    std::vector<long long> sendTimesMs;  ///< virtual time of each SendVoice
    std::vector<std::vector<uint8_t>> frames;
    std::vector<std::string> initArgs;
    int uninitCalls = 0;

    std::size_t FrameCount() {
        std::lock_guard<std::mutex> lock(mutex);
        return frames.size();
    }
    std::vector<long long> SendTimes() {
        std::lock_guard<std::mutex> lock(mutex);
        return sendTimesMs;
    }
    int Uninits() {
        std::lock_guard<std::mutex> lock(mutex);
        return uninitCalls;
    }
};

/// Shared behaviour of the fakes: record frames at virtual time, optionally take virtual time or block.
class CRecorder {
public:
    CRecorder(CVirtualClock& clock, std::shared_ptr<Record> record)
        : clock_(clock), record_(std::move(record)) {}

    bool Record(const uint8_t* data, int32_t size) {
        int index = 0;
        {
            std::lock_guard<std::mutex> lock(record_->mutex);
            index = static_cast<int>(record_->frames.size());
            record_->sendTimesMs.push_back(clock_.ElapsedMs());
            record_->frames.emplace_back(data, data + size);
        }
        if (gate != nullptr) {
            gate->Pass(index);
        }
        if (index == slowFrame) {
            clock_.Advance(slowBy);  // this send takes virtual time
        }
        return true;
    }
    void Uninit() {
        std::lock_guard<std::mutex> lock(record_->mutex);
        ++record_->uninitCalls;
    }
    void Note(const std::string& text) {
        std::lock_guard<std::mutex> lock(record_->mutex);
        record_->initArgs.push_back(text);
    }

    CGate* gate = nullptr;
    int slowFrame = -1;
    std::chrono::milliseconds slowBy{0};

private:
    CVirtualClock& clock_;
    std::shared_ptr<struct Record> record_;
};

class CFakeZPS : public IZPSVoiceTransfer {
public:
    CFakeZPS(CVirtualClock& clock, std::shared_ptr<Record> record, bool initOk, bool talkOk)
        : recorder(clock, std::move(record)), initOk_(initOk), talkOk_(talkOk) {}
    bool Init(const std::string& token) override {
        recorder.Note("token=" + token);
        return initOk_;
    }
    bool StartVoiceTalk(const std::string& url, const std::string& second,
                        const std::string& third) override {
        recorder.Note("url=" + url + " second=" + second + " third=" + third);
        return talkOk_;
    }
    void Uninit() override { recorder.Uninit(); }
    bool SendVoice(const uint8_t* data, int32_t size) override { return recorder.Record(data, size); }
    void SetDataCallback(ZPSDataCallback callback) override { callback_ = std::move(callback); }
    bool GetZPSAudioParam(ZPSAudioParam& param) override {
        param.sampleRate = 8000;
        param.encodeType = kEncodeG711U;
        return true;
    }

    CRecorder recorder;

private:
    bool initOk_;
    bool talkOk_;
    ZPSDataCallback callback_;
};

class CFakeSDK : public ISDKVoiceTransfer {
public:
    CFakeSDK(CVirtualClock& clock, std::shared_ptr<Record> record, bool ok)
        : recorder(clock, std::move(record)), ok_(ok) {}
    bool Init(const SDKTransferTarget& target) override {
        recorder.Note("device=" + std::to_string(target.deviceID));
        if (!ok_) {
            Tal::Base::Error::SetLastError(Tal::Base::Error::ErrorCode(2, 1, 4));
        }
        return ok_;
    }
    void Uninit() override { recorder.Uninit(); }
    bool SendVoice(const uint8_t* data, int32_t size) override { return recorder.Record(data, size); }

    CRecorder recorder;

private:
    bool ok_;
};

class CFakeUdp : public IUdpVoiceTransfer {
public:
    CFakeUdp(CVirtualClock& clock, std::shared_ptr<Record> record, bool ok)
        : recorder(clock, std::move(record)), ok_(ok) {}
    bool Init(const std::string& ipAddress, uint16_t port, int32_t encodeType) override {
        recorder.Note(ipAddress + ":" + std::to_string(port) + "/" + std::to_string(encodeType));
        return ok_;
    }
    void Uninit() override { recorder.Uninit(); }
    bool SendVoice(const uint8_t* data, int32_t size) override { return recorder.Record(data, size); }

    CRecorder recorder;

private:
    bool ok_;
};

/// Hands out prepared fakes in order and remembers them.
class CFakeFactory : public ITransferFactory {
public:
    explicit CFakeFactory(CVirtualClock& clock) : clock_(clock) {}

    /// The next transports of each kind succeed (true) or fail (false) in this order; later ones succeed.
    std::deque<bool> zpsInitResults, zpsTalkResults, sdkResults, udpResults;

    std::shared_ptr<IZPSVoiceTransfer> CreateZPSTransfer() override {
        auto record = std::make_shared<Record>();
        auto fake = std::make_shared<CFakeZPS>(clock_, record, Next(zpsInitResults), Next(zpsTalkResults));
        Remember(zps, record, fake);
        return fake;
    }
    std::shared_ptr<ISDKVoiceTransfer> CreateSDKTransfer() override {
        auto record = std::make_shared<Record>();
        auto fake = std::make_shared<CFakeSDK>(clock_, record, Next(sdkResults));
        Remember(sdk, record, fake);
        return fake;
    }
    std::shared_ptr<IUdpVoiceTransfer> CreateUdpTransfer() override {
        auto record = std::make_shared<Record>();
        auto fake = std::make_shared<CFakeUdp>(clock_, record, Next(udpResults));
        Remember(udp, record, fake);
        return fake;
    }

    struct Made {
        std::shared_ptr<Record> record;
        std::weak_ptr<IVoiceTransfer> transfer;
    };
    std::vector<Made> zps, sdk, udp;

    std::size_t Count(const std::vector<Made>& made) {
        std::lock_guard<std::mutex> lock(mutex_);
        return made.size();
    }
    Made At(const std::vector<Made>& made, std::size_t i) {
        std::lock_guard<std::mutex> lock(mutex_);
        return made.at(i);
    }

private:
    bool Next(std::deque<bool>& results) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (results.empty()) {
            return true;
        }
        bool result = results.front();
        results.pop_front();
        return result;
    }
    template <typename T>
    void Remember(std::vector<Made>& made, std::shared_ptr<Record> record, const std::shared_ptr<T>& fake) {
        std::lock_guard<std::mutex> lock(mutex_);
        made.push_back({std::move(record), fake});
    }

    CVirtualClock& clock_;
    std::mutex mutex_;
};

/// Log lines reach hooks on the logging thread: wait (bounded) for them.
bool WaitForLogCount(const Tal::Base::CLogCapture& log, const std::string& text, std::size_t count) {
    const auto limit = std::chrono::steady_clock::now() + 5s;
    while (log.Count(text) < count && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(5ms);
    }
    return log.Count(text) == count;
}

std::vector<uint8_t> Frame(int index, int size = 320) {
    std::vector<uint8_t> frame(static_cast<size_t>(size));
    for (int i = 0; i < size; ++i) {
        frame[static_cast<size_t>(i)] = static_cast<uint8_t>(index * 7 + i);
    }
    return frame;
}

class TransferManagerTest : public ::testing::Test {
protected:
    TransferManagerTest()
        : clock(std::make_shared<CVirtualClock>()),
          factory(std::make_shared<CFakeFactory>(*clock)),
          manager(std::make_unique<CVoiceTransferManager>(factory, clock)) {}

    ~TransferManagerTest() override {
        // The manager joins its threads; nothing may stay asleep on the virtual clock.
        manager->StopTransfer();
        manager.reset();
    }

    /// From here on, the device results the manager reports go to `results`.
    void RecordResults() {
        manager->SetResultCallback([this](const IPSpeakerNotifyParam& param) {
            std::lock_guard<std::mutex> lock(resultsMutex);
            results.push_back(param);
        });
    }
    std::vector<IPSpeakerNotifyParam> Results() {
        std::lock_guard<std::mutex> lock(resultsMutex);
        return results;
    }

    void Queue(int count, int size = 320) {
        for (int i = 0; i < count; ++i) {
            auto frame = Frame(i, size);
            manager->SendData(frame.data(), static_cast<int32_t>(frame.size()));
        }
    }

    /// Runs WaitTransferFinish while moving virtual time to each sleeper's deadline; false when the groups do
    /// not finish within the real-time limit (they are stopped then).
    bool DriveToFinish(std::chrono::seconds realLimit = 30s) {
        std::atomic<bool> finished{false};
        std::thread waiter([&] {
            manager->WaitTransferFinish();
            finished = true;
        });
        const auto limit = std::chrono::steady_clock::now() + realLimit;
        while (!finished && std::chrono::steady_clock::now() < limit) {
            CVirtualClock::TimePoint deadline;
            if (clock->WaitForSleeper(deadline, 10ms)) {
                clock->AdvanceTo(deadline);
            }
        }
        const bool done = finished;
        if (!done) {
            manager->StopTransfer();
        }
        waiter.join();
        return done;
    }

    /// Waits (real time, bounded) for `done` without moving the clock.
    template <typename Done>
    static bool WaitFor(Done done, std::chrono::seconds realLimit = 10s) {
        const auto limit = std::chrono::steady_clock::now() + realLimit;
        while (!done()) {
            if (std::chrono::steady_clock::now() >= limit) {
                return false;
            }
            std::this_thread::sleep_for(1ms);
        }
        return true;
    }

    std::vector<long long> SleepDurationsMs() {
        std::vector<long long> durations;
        for (const auto& sleep : clock->Sleeps()) {
            durations.push_back(
                std::chrono::duration_cast<std::chrono::milliseconds>(sleep.until - sleep.from).count());
        }
        return durations;
    }

    std::shared_ptr<CVirtualClock> clock;
    std::shared_ptr<CFakeFactory> factory;
    std::unique_ptr<CVoiceTransferManager> manager;
    std::mutex resultsMutex;
    std::vector<IPSpeakerNotifyParam> results;
};

}  // namespace

TEST_F(TransferManagerTest, WithoutPreBufferTheFirstFramesGoAtOnceAndThenOneIntervalApart) {
    // Device groups have no pre-buffer. The pacing sleep follows each send and aims at start + count x
    // interval, so frame k (k >= 1) leaves at (k - 1) x interval: 0, 0, 40, 80, 120.
    manager->SetFrameInterval(40);
    manager->StartSendToOEM({{7, "127.0.0.1", 5004, kEncodeG711U}});
    Queue(5);
    manager->SetInputFinished();
    auto udp = factory->At(factory->udp, 0).record;
    ASSERT_TRUE(DriveToFinish());

    EXPECT_EQ(udp->SendTimes(), (std::vector<long long>{0, 0, 40, 80, 120}));
    EXPECT_EQ(SleepDurationsMs(), (std::vector<long long>{40, 40, 40, 40}));
    EXPECT_EQ(clock->ElapsedMs(), 160);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(udp->frames[static_cast<size_t>(i)], Frame(i)) << "frame " << i;
    }
}

TEST_F(TransferManagerTest, StreamingServerGetsFewerThanAHundredFramesInOneBurstThenWaitsTheirPlayingTime) {
    manager->SetFrameInterval(40);
    ASSERT_TRUE(manager->StartSendToZPS({{"tok", "rtsp://server/talk", "username", "password"}}));
    Queue(30);
    manager->SetInputFinished();
    auto zps = factory->At(factory->zps, 0).record;
    ASSERT_TRUE(DriveToFinish());

    EXPECT_EQ(zps->SendTimes(), std::vector<long long>(30, 0));
    // One sleep after the burst: 30 frames x 40 ms, so the receiver plays them out before the end is
    // reported.
    EXPECT_EQ(SleepDurationsMs(), (std::vector<long long>{1200}));
    EXPECT_EQ(zps->initArgs, (std::vector<std::string>{
                                 "token=tok", "url=rtsp://server/talk second=username third=password"}));
}

TEST_F(TransferManagerTest, StreamingServerBurstsAHundredFramesThenPacesFromTheHundredth) {
    manager->SetFrameInterval(24);
    ASSERT_TRUE(manager->StartSendToZPS({{"", "rtsp://server/talk", "u", "p"}}));
    Queue(103);
    manager->SetInputFinished();
    auto zps = factory->At(factory->zps, 0).record;
    ASSERT_TRUE(DriveToFinish());

    std::vector<long long> expected(101, 0);  // the burst and the first paced frame
    expected.push_back(0);
    expected.push_back(24);
    EXPECT_EQ(zps->SendTimes(), expected);
    // Paced: after frames 101 and 102; then the tail of min(100, 103) frames x 24 ms.
    EXPECT_EQ(SleepDurationsMs(), (std::vector<long long>{24, 24, 2400}));
}

TEST_F(TransferManagerTest, PacingIsAbsoluteSoALateSenderCatchesUpWithoutDrift) {
    manager->SetFrameInterval(40);
    manager->StartSendToOEM({{1, "127.0.0.1", 5004, kEncodeG711U}});
    {
        auto made = factory->At(factory->udp, 0);
        auto fake = std::dynamic_pointer_cast<CFakeUdp>(made.transfer.lock());
        ASSERT_TRUE(fake);
        fake->recorder.slowFrame = 2;  // this send takes 100 ms
        fake->recorder.slowBy = 100ms;
    }
    Queue(6);
    manager->SetInputFinished();
    auto udp = factory->At(factory->udp, 0).record;
    ASSERT_TRUE(DriveToFinish());

    // Frames 3 and 4 are due at 80 and 120 but the sender is at 140: both go at once, then the schedule
    // resumes.
    EXPECT_EQ(udp->SendTimes(), (std::vector<long long>{0, 0, 40, 140, 140, 160}));
    EXPECT_EQ(clock->ElapsedMs(), 200);
}

TEST_F(TransferManagerTest, SendDataWaitsInSecondStepsAtTheQueueLimitAndReturnsAtOnceAfterAStop) {
    CGate gate;
    gate.CloseAt(0);
    EXPECT_TRUE(manager->StartSendToSDK({{11, kEncodeG711U, {{"ch", 1}}}}));
    {
        auto fake = std::dynamic_pointer_cast<CFakeSDK>(factory->At(factory->sdk, 0).transfer.lock());
        ASSERT_TRUE(fake);
        fake->recorder.gate = &gate;
    }
    // The sending thread takes the first frame and stays in it: everything after it waits in the queue.
    const uint8_t frame[4] = {1, 2, 3, 4};
    manager->SendData(frame, sizeof(frame));
    ASSERT_TRUE(gate.WaitBlocked(10s)) << "the sending thread never took a frame";

    Tal::Base::CLogCapture log;
    std::atomic<int> queued{0};
    std::thread producer([&] {
        for (int i = 0; i < 40000; ++i) {
            manager->SendData(frame, sizeof(frame));
            ++queued;
        }
    });
    // The producer blocks once the queues hold 30720 frames, sleeping 1 s at a time.
    CVirtualClock::TimePoint deadline;
    const bool waited = clock->WaitForSleeper(deadline, 60s);
    EXPECT_TRUE(waited) << "SendData never waited";
    if (waited) {
        EXPECT_EQ(deadline - clock->Now(), std::chrono::seconds(1));
        EXPECT_EQ(manager->GetQueuedFrameCount(), CVoiceTransferManager::kMaxQueuedBlocks);
        EXPECT_EQ(queued.load(), static_cast<int>(CVoiceTransferManager::kMaxQueuedBlocks));
        clock->AdvanceTo(deadline);
        EXPECT_TRUE(clock->WaitForSleeper(deadline, 10s))
            << "SendData stopped waiting while the queue was full";
        EXPECT_TRUE(WaitForLogCount(log, "Start to wait consume data.", 2));
    }

    manager->StopTransfer();
    producer.join();  // the waiting call and every later one return without the clock moving
    EXPECT_EQ(manager->GetQueuedFrameCount(), 0u);
    manager->SendData(frame, sizeof(frame));
    EXPECT_EQ(manager->GetQueuedFrameCount(), 0u);

    gate.Open();
    manager->WaitTransferFinish();
    auto sdk = factory->At(factory->sdk, 0).record;
    EXPECT_EQ(sdk->FrameCount(), 1u) << "only the frame in progress at the stop was sent";
    EXPECT_EQ(sdk->Uninits(), 1);
}

TEST_F(TransferManagerTest, StopDuringTheBurstFreesEveryQueuedFrameAndClosesTheSession) {
    CGate gate;
    gate.CloseAt(9);
    ASSERT_TRUE(manager->StartSendToZPS({{"t", "rtsp://s/talk", "u", "p"}}));
    {
        auto fake = std::dynamic_pointer_cast<CFakeZPS>(factory->At(factory->zps, 0).transfer.lock());
        ASSERT_TRUE(fake);
        fake->recorder.gate = &gate;
    }
    Queue(500);
    ASSERT_TRUE(gate.WaitBlocked(10s));
    manager->StopTransfer();
    EXPECT_EQ(manager->GetQueuedFrameCount(), 0u);
    gate.Open();
    manager->WaitTransferFinish();
    auto zps = factory->At(factory->zps, 0).record;
    EXPECT_EQ(zps->FrameCount(), 10u);
    EXPECT_EQ(zps->Uninits(), 1);
    // Frames after a stop are dropped, and a size of 0 is ignored.
    Queue(3);
    uint8_t nothing = 0;
    manager->SendData(&nothing, 0);
    EXPECT_EQ(manager->GetQueuedFrameCount(), 0u);
}

TEST_F(TransferManagerTest, ListeningSessionIsNeverFedAndOutlivesStopTransfer) {
    std::vector<uint8_t> heard;
    ASSERT_TRUE(manager->StartListenFromZPS(
        {"lt", "rtsp://s/listen", "username", "password"},
        [&](const uint8_t* data, int32_t size) { heard.assign(data, data + size); }));
    ASSERT_TRUE(manager->StartSendToZPS({{"st", "rtsp://s/talk", "username", "password"}}));
    ASSERT_EQ(factory->Count(factory->zps), 2u);
    auto listening = factory->At(factory->zps, 0);
    auto sending = factory->At(factory->zps, 1);

    manager->SetFrameInterval(40);
    Queue(5);
    manager->SetInputFinished();
    ASSERT_TRUE(DriveToFinish());
    EXPECT_EQ(listening.record->FrameCount(), 0u);

    manager->StopTransfer();
    EXPECT_EQ(sending.record->Uninits(), 1);
    EXPECT_EQ(listening.record->Uninits(), 0);
    ZPSAudioParam param;
    ASSERT_TRUE(manager->GetListenAudioParam(param));
    EXPECT_EQ(param.sampleRate, 8000);
    EXPECT_EQ(param.encodeType, kEncodeG711U);

    manager->StopListenFromZPS();
    EXPECT_EQ(listening.record->Uninits(), 1);
    EXPECT_FALSE(manager->GetListenAudioParam(param));
}

TEST_F(TransferManagerTest, SecondStartWhileStreamingOpensNothingNew) {
    Tal::Base::CLogCapture log;
    ASSERT_TRUE(manager->StartSendToZPS({{"a", "rtsp://s/1", "u", "p"}, {"b", "rtsp://s/2", "u", "p"}}));
    EXPECT_EQ(factory->Count(factory->zps), 2u);
    EXPECT_TRUE(manager->StartSendToZPS({{"c", "rtsp://s/3", "u", "p"}}));
    EXPECT_EQ(factory->Count(factory->zps), 2u);
    EXPECT_TRUE(WaitForLogCount(log, "Start transfer to zps.", 2));

    // The running thread keeps its two sessions: both get every frame.
    manager->SetFrameInterval(40);
    Queue(3);
    manager->SetInputFinished();
    auto first = factory->At(factory->zps, 0).record;
    auto second = factory->At(factory->zps, 1).record;
    ASSERT_TRUE(DriveToFinish());
    EXPECT_EQ(first->FrameCount(), 3u);
}

TEST_F(TransferManagerTest, StreamingServerStartIsAllOrNothing) {
    factory->zpsTalkResults = {true, false};
    EXPECT_FALSE(manager->StartSendToZPS({{"a", "rtsp://s/1", "u", "p"}, {"b", "rtsp://s/2", "u", "p"}}));
    ASSERT_EQ(factory->Count(factory->zps), 2u);
    EXPECT_TRUE(factory->At(factory->zps, 0).transfer.expired()) << "the opened session must be released";
    EXPECT_TRUE(factory->At(factory->zps, 1).transfer.expired());
    // No thread runs for the group: nothing is queued for it.
    Queue(2);
    EXPECT_EQ(manager->GetQueuedFrameCount(), 0u);
    // A later start works.
    EXPECT_TRUE(manager->StartSendToZPS({{"c", "rtsp://s/3", "u", "p"}}));
}

TEST_F(TransferManagerTest, DeviceResultsAreReportedPerDeviceAndAFailureEmptiesTheStreamingList) {
    RecordResults();
    ASSERT_TRUE(manager->StartListenFromZPS({"lt", "rtsp://s/listen", "u", "p"}, nullptr));
    ZPSAudioParam param;
    ASSERT_TRUE(manager->GetListenAudioParam(param));

    factory->sdkResults = {true, false};
    EXPECT_TRUE(manager->StartSendToSDK({{21, kEncodeG711U, {{"a", 1}}}, {22, kEncodeMP3, {{"b", 2}}}}));
    factory->udpResults = {false, true};
    manager->StartSendToOEM({{31, "10.0.0.1", 5004, kEncodeG711U}, {32, "10.0.0.2", 5006, kEncodeG711A}});

    const std::vector<IPSpeakerNotifyParam> reported = Results();
    ASSERT_EQ(reported.size(), 4u);
    const int expectedIds[] = {21, 22, 31, 32};
    const int expectedStatus[] = {1, 2, 2, 1};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(reported[i].type, 1);
        EXPECT_EQ(reported[i].elementID, expectedIds[i]);
        EXPECT_EQ(reported[i].speakerStatus, expectedStatus[i]);
    }
    // The failing SDK fake left (2, 1, 4) as the thread's last error; the record carries it.
    EXPECT_EQ(reported[1].error.GetSubErrorCode(), 4);
    EXPECT_EQ(reported[1].error.GetMainErrorCode(), 1);
    EXPECT_EQ(factory->At(factory->udp, 1).record->initArgs, (std::vector<std::string>{"10.0.0.2:5006/2"}));
    // Kept from the platform: a failed device start empties the streaming-server list, listening session
    // included.
    EXPECT_FALSE(manager->GetListenAudioParam(param));
}

TEST_F(TransferManagerTest, SpeakersOfOneMulticastGroupShareOneStreamAndItsResult) {
    RecordResults();
    factory->udpResults = {false, true, true, true, true, true};
    manager->StartSendToOEM({{41, "239.1.1.1", 5004, kEncodeG711U},   // opens the group; fails
                             {42, "239.1.1.1", 5004, kEncodeG711U},   // shares the failure
                             {43, "239.1.1.2", 5004, kEncodeG711U},   // opens a second group
                             {44, "239.1.1.2", 5004, kEncodeG711U},   // shares it
                             {45, "239.1.1.2", 5006, kEncodeG711U},   // another port: another stream
                             {46, "239.1.1.2", 5004, kEncodeG711A},   // another codec: another stream
                             {47, "10.0.0.1", 5004, kEncodeG711U},    // unicast speakers at one address
                             {48, "10.0.0.1", 5004, kEncodeG711U}});  // each keep a stream of their own
    ASSERT_EQ(factory->Count(factory->udp), 6u);
    const std::vector<std::string> opened = {"239.1.1.1:5004/1", "239.1.1.2:5004/1", "239.1.1.2:5006/1",
                                             "239.1.1.2:5004/2", "10.0.0.1:5004/1",  "10.0.0.1:5004/1"};
    for (size_t i = 0; i < opened.size(); ++i) {
        EXPECT_EQ(factory->At(factory->udp, i).record->initArgs, std::vector<std::string>{opened[i]}) << i;
    }
    const std::vector<IPSpeakerNotifyParam> reported = Results();
    ASSERT_EQ(reported.size(), 8u);
    const int expectedStatus[] = {2, 2, 1, 1, 1, 1, 1, 1};
    for (size_t i = 0; i < reported.size(); ++i) {
        EXPECT_EQ(reported[i].elementID, 41 + static_cast<int>(i));
        EXPECT_EQ(reported[i].speakerStatus, expectedStatus[i]) << "speaker " << reported[i].elementID;
    }
    // The five open streams each get every frame once.
    Queue(3, 160);
    ASSERT_TRUE(WaitFor([&] {
        for (size_t i = 1; i < 6; ++i) {
            if (factory->At(factory->udp, i).record->FrameCount() != 3) {
                return false;
            }
        }
        return true;
    }));
}

TEST_F(TransferManagerTest, GroupsAreFedIndependentlyAndEachGetsItsOwnCopy) {
    manager->SetFrameInterval(0);  // live talk: no pacing
    ASSERT_TRUE(manager->StartSendToZPS({{"", "rtsp://s/talk", "u", "p"}}));
    manager->StartSendToSDK({{5, kEncodeG711U, {{"c", 1}}}});
    manager->StartSendToOEM({{6, "127.0.0.1", 5004, kEncodeG711U}});
    Queue(4, 160);
    auto zps = factory->At(factory->zps, 0).record;
    auto sdk = factory->At(factory->sdk, 0).record;
    auto udp = factory->At(factory->udp, 0).record;
    ASSERT_TRUE(
        WaitFor([&] { return zps->FrameCount() == 4 && sdk->FrameCount() == 4 && udp->FrameCount() == 4; }));
    for (auto* record : {zps.get(), sdk.get(), udp.get()}) {
        std::lock_guard<std::mutex> lock(record->mutex);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(record->frames[static_cast<size_t>(i)], Frame(i, 160));
        }
    }
    EXPECT_EQ(clock->ElapsedMs(), 0);
}

TEST_F(TransferManagerTest, LiveInputNeverWaitsForASlowGroupItsOldestFramesGoAndAreCounted) {
    constexpr int kFrames = 500;
    CGate gate;
    gate.CloseAt(0);
    EXPECT_TRUE(manager->StartSendToSDK({{11, kEncodeG711U, {{"ch", 1}}}}));
    manager->StartSendToOEM({{21, "127.0.0.1", 5004, kEncodeG711U}});
    {
        auto fake = std::dynamic_pointer_cast<CFakeSDK>(factory->At(factory->sdk, 0).transfer.lock());
        ASSERT_TRUE(fake);
        fake->recorder.gate = &gate;
    }
    manager->SetLiveQueueLimit(50);
    uint8_t frame[4] = {0, 0, 0, 0};
    manager->SendData(frame, sizeof(frame));
    ASSERT_TRUE(gate.WaitBlocked(10s)) << "the slow group never took a frame";

    // The slow group holds its sender in frame 0; 500 more frames go in, as a microphone delivers them (the
    // healthy group takes each before the next), and SendData never sleeps.
    auto udp = factory->At(factory->udp, 0).record;
    for (int i = 1; i <= kFrames; ++i) {
        std::memcpy(frame, &i, sizeof(i));
        manager->SendData(frame, sizeof(frame));
        ASSERT_TRUE(WaitFor([&] { return udp->FrameCount() == static_cast<std::size_t>(i) + 1; }))
            << "the healthy group stalled at frame " << i;
    }
    CVirtualClock::TimePoint deadline;
    EXPECT_FALSE(clock->WaitForSleeper(deadline, 100ms)) << "the live input waited";
    EXPECT_EQ(manager->GetQueuedFrameCount(), 50u)
        << "the slow group holds the limit, the healthy one nothing";
    EXPECT_EQ(manager->GetDroppedFrameCount(), static_cast<uint64_t>(kFrames - 50));

    // The slow group plays on from the newest 50 frames, in order.
    gate.Open();
    auto sdk = factory->At(factory->sdk, 0).record;
    EXPECT_TRUE(WaitFor([&] { return sdk->FrameCount() == 51u; }, 10s)) << sdk->FrameCount();
    {
        std::lock_guard<std::mutex> lock(sdk->mutex);
        for (std::size_t k = 1; k < sdk->frames.size(); ++k) {
            int index = 0;
            std::memcpy(&index, sdk->frames[k].data(), sizeof(index));
            EXPECT_EQ(index, kFrames - 50 + static_cast<int>(k)) << "frame " << k;
        }
    }
    manager->StopTransfer();
    EXPECT_EQ(manager->GetDroppedFrameCount(), 0u) << "a stop ends the count";
    manager->WaitTransferFinish();
}

TEST(TransferManagerRtp, ALargeGroupOfRealSpeakersGetsEveryFrameInItsOwnStream) {
    // More speakers than one sending thread takes, so that both fan-out lanes send: sockets of the test on
    // loopback, one per speaker, and the transfers' own sockets.
    const int speakers = static_cast<int>(CUdpFanout::kHelperThreshold) + 2;
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur < static_cast<rlim_t>(2 * speakers + 64)) {
        GTEST_SKIP() << "needs " << 2 * speakers + 64 << " descriptors";
    }
    std::vector<int> sockets;
    std::vector<OEMTransferTarget> targets;
    for (int i = 0; i < speakers; ++i) {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
        ASSERT_GE(fd, 0);
        sockets.push_back(fd);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), length), 0);
        ASSERT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
        targets.push_back(
            {i, "127.0.0.1", ntohs(address.sin_port), i % 2 == 0 ? kEncodeG711U : kEncodeG711A});
    }
    {
        CVoiceTransferManager manager;
        manager.SetFrameInterval(0);
        manager.StartSendToOEM(targets);
        for (int k = 0; k < 3; ++k) {
            const auto frame = Frame(k);
            manager.SendData(frame.data(), static_cast<int32_t>(frame.size()));
        }
        manager.SetInputFinished();
        manager.WaitTransferFinish();
        manager.StopTransfer();
    }
    for (int i = 0; i < speakers; ++i) {
        uint8_t ssrc[4] = {};
        for (int k = 0; k < 3; ++k) {
            uint8_t packet[2048];
            ssize_t size = -1;
            for (int tries = 0; tries < 2000 && size < 0; ++tries) {
                size = recv(sockets[static_cast<size_t>(i)], packet, sizeof(packet), 0);
                if (size < 0) {
                    std::this_thread::sleep_for(1ms);
                }
            }
            ASSERT_EQ(size, 332) << "speaker " << i << " frame " << k;
            EXPECT_EQ(packet[0], 0x80);
            EXPECT_EQ(packet[1], (k == 0 ? 0x80 : 0) | (i % 2 == 0 ? 0 : 8)) << "speaker " << i;
            EXPECT_EQ(packet[2] << 8 | packet[3], k);
            EXPECT_EQ(static_cast<uint32_t>(packet[4] << 24 | packet[5] << 16 | packet[6] << 8 | packet[7]),
                      static_cast<uint32_t>(320 * k));
            if (k == 0) {
                std::memcpy(ssrc, packet + 8, 4);
            }
            EXPECT_EQ(std::memcmp(ssrc, packet + 8, 4), 0) << "one SSRC per stream";
            EXPECT_EQ(std::vector<uint8_t>(packet + 12, packet + size), Frame(k)) << "speaker " << i;
        }
        EXPECT_LT(recv(sockets[static_cast<size_t>(i)], nullptr, 0, 0), 0) << "one packet per frame";
        close(sockets[static_cast<size_t>(i)]);
    }
}
