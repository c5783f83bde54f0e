// The UI's playback commands: which request each sends with which fields,
// the content URL and metadata of SetAVTransportURI, and the busy rules of
// showing a photo.
#include <cstring>

#include "Dlna/DlnaMrcp.h"
#include "mrcp_fixture.h"

namespace mrcptest {
namespace {

class MrcpPlayback : public MrcpTest {
protected:
    void SetUp() override {
        MrcpTest::SetUp();
        buildDatabase();
        ASSERT_TRUE(start());
    }
};

TEST_F(MrcpPlayback, PlayAndShowNeedAChosenRenderer) {
    EXPECT_EQ(DlnaMrcpPlayFile(video().c_str()), 0);
    EXPECT_TRUE(testsupport::logged("[MRCP ERR] DLNAPlayFile(), DMR is not selected!!", "DLNA"));
    EXPECT_EQ(DlnaMrcpShowFile(photo().c_str()), 0);
    EXPECT_TRUE(testsupport::logged("[MRCP ERR] DLNAMrcpShowFile(), DMR is not selected!!", "DLNA"));
    // The other commands have no renderer to talk to either.
    EXPECT_EQ(DlnaMrcpPauseFile(), 0);
    EXPECT_TRUE(testsupport::logged("[MRCP ERR] DLNAPlayFile(), ZEBMRCPAVPause() failed!!!- -1", "DLNA"));
    EXPECT_TRUE(host::mrcp::sentRequests().empty());
}

TEST_F(MrcpPlayback, PlayFileSendsSetAVTransportURIWithTheFilesUrlAndDescription) {
    chooseRenderer(2, 1);
    EXPECT_EQ(DlnaMrcpPlayFile(video().c_str()), 1);
    auto r = lastRequest("SetAVTransportURI");
    EXPECT_EQ(r.function, "ZEBMRCPSetAVTransportURI");
    EXPECT_EQ(r.udn, udnOf(1));
    EXPECT_EQ(r.profile, 1);
    EXPECT_EQ(r.instance.value_or(""), "0");
    EXPECT_EQ(r.context.value_or(""), "video");
    std::string uri = r.uri.value_or("");
    EXPECT_EQ(uri.compare(0, 7, "http://"), 0);
    EXPECT_NE(uri.find(":18100" + video()), std::string::npos) << uri;
    std::string md = r.metadata.value_or("");
    EXPECT_TRUE(wellFormedXml(md)) << md;
    EXPECT_NE(md.find("<dc:title>MOV00003.MP4</dc:title>"), std::string::npos) << md;
    EXPECT_NE(md.find("<upnp:class>object.item.videoItem</upnp:class>"), std::string::npos) << md;
    EXPECT_NE(md.find("protocolInfo=\"http-get:*:video/mp4:DLNA.ORG_OP=01\""), std::string::npos) << md;
    EXPECT_NE(md.find("duration=\"0:00:05.000\""), std::string::npos) << md;
    EXPECT_NE(md.find(">" + uri + "</res>"), std::string::npos) << md;
    EXPECT_NE(md.find("<item id=\"3$"), std::string::npos) << md;
    EXPECT_TRUE(testsupport::logged("[MRCP] DLNAPlayFile(), pContentURI : " + uri, "DLNA"));
    EXPECT_TRUE(testsupport::logged("[MRCP] Sending Set AV Transport URI action", "DLNA"));
    EXPECT_TRUE(testsupport::logged("[MRCP] DLNAPlayFile(), ZEBMRCPSetAVTransportURI() has started!!", "DLNA"));
    EXPECT_TRUE(testsupport::logged("DlnaMrcpPlayFile() ENTER", "DLNA"));
    EXPECT_TRUE(testsupport::logged("DlnaMrcpPlayFile() EXIT", "DLNA"));
}

TEST_F(MrcpPlayback, MetadataOfAPhotoWithMarkupInItsNameIsEscaped) {
    std::string odd = dcim() + "/100CAMERA/Tom & Jerry <1>.jpg";
    mediatest::writeFile(odd, mediatest::jpegBytes(800, 600));
    buildDatabase();
    chooseRenderer();
    ASSERT_EQ(DlnaMrcpPlayFile(odd.c_str()), 1);
    auto r = lastRequest("SetAVTransportURI");
    EXPECT_EQ(r.context.value_or(""), "image");
    std::string md = r.metadata.value_or("");
    EXPECT_TRUE(wellFormedXml(md)) << md;
    EXPECT_NE(md.find("<dc:title>Tom &amp; Jerry &lt;1&gt;.jpg</dc:title>"), std::string::npos) << md;
    EXPECT_NE(md.find("object.item.imageItem.photo"), std::string::npos) << md;
    EXPECT_NE(md.find("resolution=\"800x600\""), std::string::npos) << md;
    EXPECT_TRUE(testsupport::logged("[MRCP] Mrcp_SetAvtransportUrl(), Resolution : 800x600", "DLNA"));
}

TEST_F(MrcpPlayback, PlayFileOfAFileTheDatabaseDoesNotKnowSendsNothing) {
    chooseRenderer();
    std::string unknown = dcim() + "/100CAMERA/NEW00009.JPG";
    mediatest::writeFile(unknown, mediatest::jpegBytes(64, 48));
    EXPECT_EQ(DlnaMrcpPlayFile(unknown.c_str()), 0);
    EXPECT_TRUE(testsupport::logged("[MRCP ERR] !!!! DLNAPlayFile(), ZEBUtilParseMediaFile() failed !!!! ", "DLNA"));
    EXPECT_TRUE(host::mrcp::sentRequests("SetAVTransportURI").empty());
}

TEST_F(MrcpPlayback, PlayFileFailuresOfTheStackAreLogged) {
    chooseRenderer();
    host::scriptResult("HZebMSCPRQGetAVTransportURIMetadata", 0);
    EXPECT_EQ(DlnaMrcpPlayFile(video().c_str()), 0);
    EXPECT_TRUE(testsupport::logged("[MRCP ERR] pMetadata == NULL!!!", "DLNA"));
    host::scriptResult("HZebMRCPAllocRequestResources", 1);
    EXPECT_EQ(DlnaMrcpPlayFile(video().c_str()), 0);
    EXPECT_TRUE(testsupport::logged("[MRCP ERR] DLNAPlayFile(), HZebMRCPAllocRequestResources() failed!!", "DLNA"));
    host::scriptResult("HZebMRCPRQSetMetaData", 1);
    EXPECT_EQ(DlnaMrcpPlayFile(video().c_str()), 0);
    EXPECT_TRUE(testsupport::logged("[MRCP ERR] DLNAPlayFile(), SetActionRequest() failed!!!", "DLNA"));
    host::scriptResult("ZEBMRCPSetAVTransportURI", 7);
    EXPECT_EQ(DlnaMrcpPlayFile(video().c_str()), 0);
    EXPECT_TRUE(testsupport::logged("[MRCP ERR] DLNAPlayFile(), ZEBMRCPSetAVTransportURI() failed!!!- 7", "DLNA"));
    EXPECT_TRUE(host::mrcp::sentRequests().size() == 0u);
}

TEST_F(MrcpPlayback, ShowFileSendsStopFirstAndMarksStopAndShowBusy) {
    chooseRenderer();
    EXPECT_EQ(DlnaMrcpShowFile(photo().c_str()), 1);
    auto r = lastRequest("Stop");
    EXPECT_EQ(r.function, "ZEBMRCPAVStop");
    EXPECT_EQ(r.context.value_or(""), "StopAction");
    EXPECT_EQ(r.instance.value_or(""), "0");
    EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionSent);
    EXPECT_EQ(gMrcpShowActionFlag.load(), kMrcpActionSent);
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    EXPECT_TRUE(testsupport::logged("[MRCP] DlnaMrcpShowFile(), ZEBMRCPAVStop() has started!!", "DLNA"));
}

TEST_F(MrcpPlayback, ShowFileWhileAStopIsPendingFailsAndLeavesShowReadyFalse) {
    chooseRenderer();
    ASSERT_EQ(DlnaMrcpShowFile(photo().c_str()), 1);
    EXPECT_EQ(DlnaMrcpShowFile(photo2().c_str()), 0);
    EXPECT_TRUE(testsupport::logged(
        "[MRCP ERR] DLNAMrcpShowFile(), Last STOP is not over yet. Wait until it is over", "DLNA"));
    EXPECT_FALSE(MrcpGetShowReadyFlag());
    EXPECT_EQ(DlnaMrcpShowFile(photo2().c_str()), 0);
    EXPECT_TRUE(testsupport::logged(
        "[MRCP ERR] DLNAMrcpShowFile(), Last ShowFile is ongoing.. Wait for SHOWREADY Event ", "DLNA"));
    EXPECT_EQ(host::mrcp::sentRequests("Stop").size(), 1u);
}

TEST_F(MrcpPlayback, ShowFileWhileAPlayIsPendingFailsAndLeavesShowReadyFalse) {
    chooseRenderer();
    gMrcpPlayActionFlag = kMrcpActionSent;
    EXPECT_EQ(DlnaMrcpShowFile(photo().c_str()), 0);
    EXPECT_TRUE(testsupport::logged(
        "[MRCP ERR] Mrcp_SetAvtransportUrl(), Last PLAY is not over yet. Wait until it is over", "DLNA"));
    EXPECT_FALSE(MrcpGetShowReadyFlag());
    EXPECT_TRUE(host::mrcp::sentRequests().empty());
}

TEST_F(MrcpPlayback, ShowFileWhoseStopCannotBeSentReturnsZero) {
    chooseRenderer();
    host::scriptResult("ZEBMRCPAVStop", 4);
    EXPECT_EQ(DlnaMrcpShowFile(photo().c_str()), 0);
    EXPECT_TRUE(testsupport::logged("[MRCP ERR] DlnaMrcpShowFile(), ZEBMRCPAVStop() failed!!!- 4", "DLNA"));
    EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionIdle);
}

struct Command {
    const char* name;
    int (*call)();
    const char* action;
    const char* function;
    const char* context;
    const char* started;
    const char* failed;  // with the stack's status 9
};

void PrintTo(const Command& c, std::ostream* os) { *os << c.name; }

int cmdPause() { return DlnaMrcpPauseFile(); }
int cmdResume() { return DlnaMrcpResumeFile(); }
int cmdStop() { return DlnaMrcpStopFile(); }
int cmdSeek() { return DlnaMrcpSeekFile("0:01:30"); }
int cmdPosition() { return DlnaMrcpGetPositionInfo(); }
int cmdSetVolume() { return DlnaMrcpSetVolume(nullptr, 35); }
int cmdGetVolume() { return DlnaMrcpGetVolume(""); }

class MrcpCommand : public MrcpPlayback, public testing::WithParamInterface<Command> {};

TEST_P(MrcpCommand, SendsItsActionAndContextToTheChosenRendererOrLogsItsFailure) {
    const Command& c = GetParam();
    chooseRenderer(3, 2);
    EXPECT_EQ(c.call(), 1);
    auto r = lastRequest(c.action);
    EXPECT_EQ(r.function, c.function);
    EXPECT_EQ(r.udn, udnOf(2));
    EXPECT_EQ(r.instance.value_or(""), "0");
    EXPECT_EQ(r.context.value_or(""), c.context);
    if (c.started) {
        EXPECT_TRUE(testsupport::logged(c.started, "DLNA")) << c.started;
    }
    host::scriptResult(c.function, 9);
    EXPECT_EQ(c.call(), 0);
    if (c.failed) {
        EXPECT_TRUE(testsupport::logged(c.failed, "DLNA")) << c.failed;
    }
    EXPECT_EQ(host::mrcp::liveObjects(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, MrcpCommand,
    testing::Values(
        Command{"Pause", cmdPause, "Pause", "ZEBMRCPAVPause", "PauseAction",
                "[MRCP] DLNAPlayFile(), ZEBMRCPAVPause() has started!!",
                "[MRCP ERR] DLNAPlayFile(), ZEBMRCPAVPause() failed!!!- 9"},
        Command{"Resume", cmdResume, "Resume", "ZEBMRCPAVResume", "ResumeAction",
                "[MRCP] DLNAPlayFile(), ZEBMRCPAVResume() has started!!",
                "[MRCP ERR] DLNAPlayFile(), ZEBMRCPAVResume() failed!!!- 9"},
        Command{"Stop", cmdStop, "Stop", "ZEBMRCPAVStop", "StopAction",
                "[MRCP] DLNAPlayFile(), ZEBMRCPAVStop() has started!!",
                "[MRCP ERR] DLNAPlayFile(), ZEBMRCPAVStop() failed!!!- 9"},
        Command{"Seek", cmdSeek, "Seek", "ZEBMRCPAVSeek", "SeekAction",
                "[MRCP] DLNAPlayFile(), ZEBMRCPAVPause() has started!!",
                "[MRCP ERR] DLNAPlayFile(), ZEBMRCPAVPause() failed!!!- 9"},
        Command{"Position", cmdPosition, "GetPositionInfo", "ZEBMRCPGetPlayPositionInfo", "GetPositionInfoAction",
                "ZEBMRCPGetPlayPositioninfo has started!!", "ZEBMRCPGetPlayPositioninfo failed!!!- 9"},
        Command{"SetVolume", cmdSetVolume, "SetVolume", "ZEBMRCPSetVolume", "VolumeAction", nullptr, nullptr},
        Command{"GetVolume", cmdGetVolume, "GetVolume", "ZEBMRCPGetVolume", "VolumeAction", nullptr, nullptr}),
    [](const testing::TestParamInfo<Command>& info) { return std::string(info.param.name); });

TEST_F(MrcpPlayback, SeekCarriesRelativeTimeTargetAsGiven) {
    chooseRenderer();
    ASSERT_EQ(DlnaMrcpSeekFile("0:01:30"), 1);
    auto r = lastRequest("Seek");
    EXPECT_EQ(r.seekUnit.value_or(""), "REL_TIME");
    EXPECT_EQ(r.seekTarget.value_or(""), "0:01:30");
    EXPECT_EQ(DlnaMrcpSeekFile(nullptr), 0);
}

TEST_F(MrcpPlayback, ResumeAsksForNormalSpeed) {
    chooseRenderer();
    ASSERT_EQ(DlnaMrcpResumeFile(), 1);
    EXPECT_EQ(lastRequest("Resume").speed.value_or(0), 1);
}

TEST_F(MrcpPlayback, VolumeGoesToTheMasterChannelOfTheChosenRendererWhateverUdnIsGiven) {
    // Without a chosen renderer there is nobody to send it to.
    EXPECT_EQ(DlnaMrcpSetVolume(udnOf(1).c_str(), 50), 0);
    EXPECT_EQ(DlnaMrcpGetVolume(udnOf(1).c_str()), 0);
    EXPECT_TRUE(host::mrcp::sentRequests().empty());
    chooseRenderer(2, 0);
    ASSERT_EQ(DlnaMrcpSetVolume(udnOf(1).c_str(), 100), 1);
    auto r = lastRequest("SetVolume");
    EXPECT_EQ(r.udn, udnOf(0));
    EXPECT_EQ(r.channel.value_or(""), "Master");
    EXPECT_EQ(r.volume.value_or(-1), 100);
    ASSERT_EQ(DlnaMrcpGetVolume(udnOf(1).c_str()), 1);
    EXPECT_EQ(lastRequest("GetVolume").udn, udnOf(0));
    EXPECT_EQ(lastRequest("GetVolume").channel.value_or(""), "Master");
    ASSERT_EQ(DlnaMrcpGetVolume("uuid:not-on-the-network"), 1);
    EXPECT_EQ(lastRequest("GetVolume").udn, udnOf(0));
    EXPECT_EQ(DlnaMrcpSetVolume(nullptr, 101), 0);
    EXPECT_EQ(DlnaMrcpSetVolume(nullptr, -1), 0);
    EXPECT_EQ(host::mrcp::sentRequests("SetVolume").size(), 1u);
}

TEST_F(MrcpPlayback, DmrStatusAsksForTheTransportInfoOnce) {
    chooseRenderer();
    EXPECT_EQ(DlnaGetDmrStatus(), 1);
    auto r = lastRequest("GetTransportInfo");
    EXPECT_EQ(r.function, "ZEBMRCPGetPlayState");
    EXPECT_EQ(r.context.value_or(""), "GetPlayStateAction");
}

TEST_F(MrcpPlayback, RendererStateIsReportedForTheChosenRendererOnly) {
    chooseRenderer(2, 0);
    EXPECT_EQ(DlnaMrcpGetRendererState(udnOf(0).c_str()), 0);
    EXPECT_EQ(DlnaMrcpGetRendererState(udnOf(1).c_str()), -1);
    EXPECT_EQ(DlnaMrcpGetRendererState(nullptr), -1);
    EXPECT_TRUE(testsupport::logged("DlnaMrcpGetRendererState() ENTER , UDN = uuid:tv-0 ", "DLNA"));
}

TEST_F(MrcpPlayback, ShowReadyFlagIsSetAndRead) {
    EXPECT_EQ(MrcpSetShowReadyFlag(false), 1);
    EXPECT_FALSE(MrcpGetShowReadyFlag());
    EXPECT_EQ(MrcpSetShowReadyFlag(true), 1);
    EXPECT_TRUE(MrcpGetShowReadyFlag());
}

}  // namespace
}  // namespace mrcptest
