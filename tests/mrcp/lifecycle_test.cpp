// Start and stop of the renderer control point, the renderer list, the
// choice of a renderer, renderers arriving and leaving, the camera's address.
#include <sys/stat.h>

#include <climits>
#include <cstring>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaMrcp.h"
#include "Dlna/DlnaMrcpDescriptions.h"
#include "Dlna/DlnaStack.h"
#include "SP/osal/SPGenericThread.h"
#include "host_media.h"
#include "host_nasl.h"
#include "mrcp_fixture.h"
#include "support/netns.h"

namespace mrcptest {
namespace {

using host::mrcp::Renderer;


// Index of the first journal entry starting with prefix, -1 when none.
int journalIndex(const std::string& prefix) {
    auto all = host::journalEntries();
    for (size_t i = 0; i < all.size(); ++i)
        if (all[i].compare(0, prefix.size(), prefix) == 0) return static_cast<int>(i);
    return -1;
}

class MrcpLifecycle : public MrcpTest {};

TEST_F(MrcpLifecycle, StartSetsTheSettingsAndBringsEveryPartUpInOrder) {
    SetSelectImagePath(const_cast<char*>("selected"));
    ASSERT_TRUE(start());
    EXPECT_EQ(GetAllShareMode(), 9u);
    EXPECT_EQ(DlnaGetTransferSize(), 1);
    EXPECT_EQ(GetSelectImagePath(), nullptr);
    EXPECT_EQ(GetACLMode(), 0u);
    EXPECT_EQ(gMrcpCallback.load(), &recordEvent);
    EXPECT_TRUE(host::media::fileListExists());
    const char* order[] = {"NASLWifi_InitFileList(0)", "ZEBInitializeZEB(", "ZEBHTTPInitialize()", "ZEBCheckFileState(",
                           "ZEBMRCPInitialize(", "HTTPStreamingServerInitialize(1, 18100)", "ZEBMRCPStart(1)"};
    int last = -1;
    for (const char* step : order) {
        int at = journalIndex(step);
        EXPECT_GT(at, last) << step;
        last = at;
    }
    EXPECT_TRUE(host::mrcp::profileStarted());
    EXPECT_TRUE(host::mrcp::streamingServerRunning());
    EXPECT_EQ(gMrcpProfileID.load(), 1);
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    EXPECT_TRUE(testsupport::logged("DlnaMrcpStart() ENTER", "DLNA"));
    EXPECT_TRUE(testsupport::logged("DlnaMrcpStart() EXIT", "DLNA"));
}

TEST_F(MrcpLifecycle, StartWritesTheFourDescriptionsNoLongerThanTheirTextsOrLengthFields) {
    ASSERT_TRUE(start());
    std::string dir = path("/mnt/mmc/config/DMC/MRCP/xml/");
    const unsigned expectedLengths[] = {2482, 21267, 4852, 23802};
    for (int i = 0; i < kMrcpConfigFileCount; ++i) {
        const stZEBConfigFile& f = kMrcpConfigFiles[i];
        EXPECT_EQ(f.uiLength, expectedLengths[i]) << f.pFileName;
        EXPECT_EQ(f.uiReserved, 0u);
        std::string text = mediatest::readFile(dir + f.pFileName);
        // What was written is the whole template and nothing beyond its end.
        EXPECT_EQ(text, std::string(f.pContent)) << f.pFileName;
        EXPECT_LE(text.size(), f.uiLength) << f.pFileName;
    }
    std::string device = mediatest::readFile(dir + "DeviceDescription.xml");
    EXPECT_LT(device.size(), 2482u) << "the device description's length field exceeds its text";
    EXPECT_TRUE(wellFormedXml(device));
    for (const char* part :
         {"<deviceType>urn:schemas-upnp-org:device:MediaRenderer:1</deviceType>", "<friendlyName>CAMERA_MRCP</friendlyName>",
          "<dlna:X_DLNADOC>MRCP-1.50</dlna:X_DLNADOC>", "<dlna:X_DLNADOC>M-MRCP-1.50</dlna:X_DLNADOC>",
          "<modelDescription>Control the MediaRenderer</modelDescription>", "<modelNumber>0.765</modelNumber>",
          "<UDN>uuid:a520f180-00a4-1000-b5d5-000e35c6028e</UDN>",
          "<SCPDURL>_urn:schemas-upnp-org:service:AVTransport_1.xml</SCPDURL>",
          "<controlURL>_urn:schemas-upnp-org:service:ConnectionManager_control</controlURL>",
          "<eventSubURL>_urn:schemas-upnp-org:service:RenderingControl_event</eventSubURL>"})
        EXPECT_NE(device.find(part), std::string::npos) << part;

    std::string avt = mediatest::readFile(dir + "AVTransport_1.xml");
    ASSERT_EQ(avt.compare(0, 6, " <?xml"), 0) << "one blank before the XML declaration";
    EXPECT_TRUE(wellFormedXml(avt.substr(1)));
    for (const char* action : {"GetCurrentTransportActions", "GetDeviceCapabilities", "GetMediaInfo", "GetPositionInfo",
                               "GetTransportInfo", "GetTransportSettings", "Next", "Pause", "Play", "Previous", "Seek",
                               "SetAVTransportURI", "SetPlayMode", "Stop"})
        EXPECT_NE(avt.find(std::string("<name>") + action + "</name>"), std::string::npos) << action;
    EXPECT_NE(avt.find("<stateVariable sendEvents=\"yes\">\n      <name>LastChange</name>"), std::string::npos);

    std::string cm = mediatest::readFile(dir + "ConnectionManager_1.xml");
    EXPECT_TRUE(wellFormedXml(cm));
    EXPECT_NE(cm.find("<name>GetProtocolInfo</name>"), std::string::npos);
    std::string rc = mediatest::readFile(dir + "RenderingControl_1.xml");
    EXPECT_TRUE(wellFormedXml(rc));
    for (const char* channel : {"Master", "LF", "RF"})
        EXPECT_NE(rc.find(std::string("<allowedValue>") + channel + "</allowedValue>"), std::string::npos);
    EXPECT_NE(rc.find("<name>SetVolume</name>"), std::string::npos);
}

TEST_F(MrcpLifecycle, StartWithTheTemplateCheckFailingStopsAfterStackAndHttpAndTerminateReleasesThem) {
    host::scriptResult("ZEBCheckFileState", 0);
    EXPECT_FALSE(start());
    EXPECT_TRUE(testsupport::logged("[DlnaMrcpStart] MRCP Configuration file not present ", "DLNA"));
    EXPECT_TRUE(gDlnaStackInitialized);
    EXPECT_TRUE(gDlnaHTTPInitialized);
    EXPECT_EQ(journalIndex("ZEBMRCPInitialize("), -1);
    host::clearJournal();
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
    EXPECT_FALSE(gDlnaStackInitialized);
    EXPECT_FALSE(gDlnaHTTPInitialized);
    EXPECT_GE(journalIndex("ZEBHTTPTerminate()"), 0);
    EXPECT_GE(journalIndex("ZEBTerminateZEB()"), 0);
    // Neither started nor given a profile: not stopped nor terminated.
    EXPECT_EQ(journalIndex("ZEBMRCPStop("), -1);
    EXPECT_EQ(journalIndex("ZEBMRCPTerminate("), -1);
    EXPECT_TRUE(host::media::runningThreads().empty());
}

TEST_F(MrcpLifecycle, StartWithHttpAlreadyUpFromTheMediaServerSaysSoAndGoesOn) {
    ASSERT_EQ(ZEBHTTPInitialize(), 0);
    gDlnaHTTPInitialized = true;
    host::clearJournal();
    ASSERT_TRUE(start());
    EXPECT_TRUE(testsupport::logged("HTTP Stream Thread is already initialized", "DLNA"));
    EXPECT_EQ(journalIndex("ZEBHTTPInitialize()"), -1);
}

struct StartFailure {
    const char* name;
    const char* scriptFn;  // scripted result that makes the step fail
    long long scripted;
    const char* omitKey;   // or a configuration key left out
    const char* log;       // the red line logged
};

void PrintTo(const StartFailure& f, std::ostream* os) { *os << f.name; }

class MrcpStartFailure : public MrcpTest, public testing::WithParamInterface<StartFailure> {};

TEST_P(MrcpStartFailure, ReturnsZeroWithItsErrorLineAndStartsNothingLater) {
    const StartFailure& f = GetParam();
    if (f.scriptFn) host::scriptResult(f.scriptFn, f.scripted);
    if (f.omitKey) writeConfig({f.omitKey});
    EXPECT_FALSE(start());
    bool found = false;
    for (auto& line : host::logLinesContaining(f.log))
        found = found || (line.priority == 6 && testsupport::messageOf(line) == f.log);
    EXPECT_TRUE(found) << f.log;
    EXPECT_FALSE(gMrcpStarted);
    EXPECT_FALSE(testsupport::logged("DlnaMrcpStart() EXIT"));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, MrcpStartFailure,
    testing::Values(
        StartFailure{"HttpInit", "ZEBHTTPInitialize", 1, nullptr, "[DlnaMrcpStart]Failed to Initialize HTTP"},
        StartFailure{"ProfileInit", "ZEBMRCPInitialize", 1, nullptr, "[DlnaMrcpStart]Error In Initalizing MRCP Profile "},
        StartFailure{"NoProfileHandle", "ZEBMRCPInitialize.profile", 20, nullptr, "Error : gMSCPConnectionID=20"},
        StartFailure{"NoStreamingPort", nullptr, 0, "HTTPStreamingPort",
                     "[DlnaMrcpStart]Failed to get HTTPStreamingPort from UpnpConfig "},
        StartFailure{"StreamingServer", "HTTPStreamingServerInitialize", 0, nullptr,
                     "[DlnaMrcpStart]Failed to Init HTTP Streaming Server "},
        StartFailure{"ProfileStart", "ZEBMRCPStart", 3, nullptr, "[DlnaMrcpStart] Failed to Start MRCP "}),
    [](const testing::TestParamInfo<StartFailure>& info) { return std::string(info.param.name); });

TEST_F(MrcpLifecycle, StackInitFailureNamesTheConfigurationFile) {
    host::scriptResult("ZEBInitializeZEB", 5);
    EXPECT_FALSE(start());
    std::string text = "[DlnaMrcpStart]Return_value: 5 ZEBInitializeZEB: " + path("/mnt/mmc/config/UPnPConfig.xml");
    EXPECT_TRUE(testsupport::logged(text, "DLNA"));
    EXPECT_FALSE(gDlnaStackInitialized);
}

TEST_F(MrcpLifecycle, StartAfterAFailedStartRepeatsOnlyTheMissingSteps) {
    host::scriptResult("HTTPStreamingServerInitialize", 0);
    ASSERT_FALSE(start());
    host::clearJournal();
    ASSERT_TRUE(start());
    EXPECT_EQ(journalIndex("ZEBInitializeZEB("), -1);
    EXPECT_EQ(journalIndex("ZEBHTTPInitialize()"), -1);
    EXPECT_GE(journalIndex("ZEBMRCPInitialize("), 0);
    EXPECT_GE(journalIndex("ZEBMRCPStart("), 0);
}

TEST_F(MrcpLifecycle, TerminateTakesEachPartDownOnceInOrder) {
    ASSERT_TRUE(start());
    host::clearJournal();
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
    const char* order[] = {"DMSAppStopTimerThread()", "ZEBHTTPStopAsyncThread()", "ZEBStopTimerThreadZEB()",
                           "ZEBHTTPTerminate()", "ZEBMRCPStop(1)", "ZEBMRCPTerminate(1)", "ZEBTerminateZEB()",
                           "HTTPStreamingServerTerminate()", "NASLWifi_DestroyFileList()"};
    int last = -1;
    for (const char* step : order) {
        int at = journalIndex(step);
        EXPECT_GT(at, last) << step;
        last = at;
    }
    EXPECT_EQ(gMrcpProfileID.load(), kMrcpNoProfile);
    EXPECT_FALSE(host::mrcp::profileInitialised());
    EXPECT_FALSE(host::mrcp::streamingServerRunning());
    EXPECT_TRUE(testsupport::logged("ZEBHTTP Terminated", "DLNA"));
    EXPECT_TRUE(testsupport::logged("ZEBTerminateZEB() completed", "DLNA"));
    EXPECT_TRUE(testsupport::logged("DlnaDmsTerminate() EXIT", "DLNA"));

    // A second terminate finds everything down: only the unconditional steps.
    host::clearJournal();
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
    EXPECT_EQ(journalIndex("ZEBHTTPTerminate()"), -1);
    EXPECT_EQ(journalIndex("ZEBMRCPStop("), -1);
    EXPECT_EQ(journalIndex("ZEBMRCPTerminate("), -1);
    EXPECT_EQ(journalIndex("ZEBTerminateZEB()"), -1);
    EXPECT_GE(journalIndex("HTTPStreamingServerTerminate()"), 0);
    EXPECT_TRUE(testsupport::logged("ERR: [DlnaMrcpTerminate] NASLWifi_DestroyFileList() failed !!! ", "DLNA"));
}

TEST_F(MrcpLifecycle, ListWithNoRenderersWaitsTwoSecondsReturnsOneAndLeavesTheOutputs) {
    ASSERT_TRUE(start());
    gMrcpListWaitMs = 2000;
    int count = 77;
    DmrListEntry* list = reinterpret_cast<DmrListEntry*>(0x1);
    // The wait is measured on the clock it is made with: a whole 2 seconds
    // of it, not 1999.x ms of another one.
    int64_t before = SPGenericTime::getMilliseconds();
    EXPECT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
    int64_t took = SPGenericTime::getMilliseconds() - before;
    EXPECT_GE(took, 2000);
    EXPECT_LT(took, 10000);
    EXPECT_EQ(count, 77);
    EXPECT_EQ(list, reinterpret_cast<DmrListEntry*>(0x1));
    EXPECT_TRUE(testsupport::logged("[MRCP]**** NO Renderers on the network ****", "DLNA"));
}

TEST_F(MrcpLifecycle, ListOfTwentyFiveRenderersIsCappedAtTwentyRows) {
    ASSERT_TRUE(start());
    std::vector<Renderer> renderers;
    for (int i = 0; i < 25; ++i) {
        Renderer r;
        r.name = "Living room TV with a rather long friendly name number " + std::to_string(i);
        r.udn = udnOf(i);
        renderers.push_back(r);
    }
    host::mrcp::setRenderers(renderers);
    int count = 0;
    DmrListEntry* list = nullptr;
    ASSERT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
    ASSERT_EQ(count, DLNA_MRCP_MAX_DMR);
    ASSERT_NE(list, nullptr);
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(list[i].index, i);
        EXPECT_EQ(std::string(list[i].name), renderers[i].name.substr(0, 49));
        EXPECT_EQ(std::string(list[i].udn), udnOf(i));
    }
    std::string row = "[MRCP] DMR-03 : [" + renderers[3].name.substr(0, 49) + "]  [uuid:tv-3] ";
    EXPECT_TRUE(testsupport::logged(row, "DLNA"));
    EXPECT_EQ(testsupport::countLogged("------------------------------------", "DLNA"), 40);
    EXPECT_TRUE(testsupport::logged("DlnaMrcpGetDmrList() EXIT", "DLNA"));
    // Renderers beyond the twentieth cannot be chosen: the call still
    // returns 1, and chooses nothing.
    EXPECT_EQ(DlnaMrcpSetDmr(20, "uuid:tv-20"), 1);
    EXPECT_EQ(MrcpChosenUdn(), "");
    EXPECT_TRUE(host::mrcp::subscriptions().empty());
}

TEST_F(MrcpLifecycle, ListFailuresReturnZeroWithTheirLines) {
    ASSERT_TRUE(start());
    host::mrcp::setRenderers({Renderer{"TV", "uuid:tv-0"}});
    const std::pair<const char*, const char*> failures[] = {
        {"ZEBMRCPGetDeviceList", "[K700 ERR] DLNAGetDMRList(), ZEBMRCPGetDeviceList() failed!!!"},
        {"HZebMRCPCRGetActionName", "[MRCP ERR] DLNAGetDMRList(), HZebMRCPCRGetActionName() failed!!!"},
        {"HZebValidateUIResponse", "[MRCP ERR] DLNAGetDMRList(), HZebValidateUIResponse() failed!!!"},
        {"HZebMRCPCRGetNumberOfDevices", "[MRCP ERR] DLNAGetDMRList(), HZebMRCPCRGetNumberOfDevices() failed!!!"},
        {"HZebMRCPCRGetUDNFromDeviceInfo", "[MRCP ERR] DLNAGetDMRList(), GetDevcieInfo() failed!!!"},
    };
    for (auto& f : failures) {
        host::scriptResult(f.first, 1);
        int count = -1;
        DmrListEntry* list = nullptr;
        EXPECT_EQ(DlnaMrcpGetDmrList(&count, &list), 0) << f.first;
        EXPECT_EQ(count, -1) << f.first;
        EXPECT_TRUE(testsupport::logged(f.second, "DLNA")) << f.second;
        EXPECT_EQ(host::mrcp::liveObjects(), 0) << "the response is released after " << f.first;
    }
}

TEST_F(MrcpLifecycle, SetDmrChoosesTheListRowsUdnWhateverTheArgumentSays) {
    ASSERT_TRUE(start());
    chooseRenderer(4, 0);
    MrcpSetShowReadyFlag(false);
    gMrcpStopActionFlag = kMrcpActionSent;
    EXPECT_EQ(DlnaMrcpSetDmr(2, "x"), 1);
    {
        std::lock_guard<std::mutex> g(MrcpLock());
        EXPECT_STREQ(gSelectedDmrUDN, "uuid:tv-2");
    }
    EXPECT_EQ(host::mrcp::subscriptions().back(), "uuid:tv-2");
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionIdle);
    EXPECT_TRUE(testsupport::logged("deviceID =2, pDeviceUDN = x", "DLNA"));
    EXPECT_TRUE(testsupport::logged("[MRCP] DLNASetDMR(), gnSelectedDmrUDN=uuid:tv-2", "DLNA"));
}

TEST_F(MrcpLifecycle, SetDmrOutsideTheTwentyRowsReturnsOneLogsAndChoosesNothing) {
    ASSERT_TRUE(start());
    chooseRenderer(3, 1);
    MrcpSetShowReadyFlag(false);
    gMrcpStopActionFlag = kMrcpActionSent;
    for (int index : {20, 21, -1, 1000000, INT_MIN}) {
        EXPECT_EQ(DlnaMrcpSetDmr(index, "uuid:tv-0"), 1) << index;
        EXPECT_TRUE(testsupport::logged("[MRCP ERR] DLNASetDMR(), no renderer at row " + std::to_string(index), "DLNA"))
            << index;
    }
    // The earlier choice stands, with its busy state: nothing was chosen.
    EXPECT_EQ(MrcpChosenUdn(), "uuid:tv-1");
    EXPECT_EQ(host::mrcp::subscriptions(), std::vector<std::string>{"uuid:tv-1"});
    EXPECT_FALSE(MrcpGetShowReadyFlag());
    EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionSent);
    EXPECT_EQ(DlnaMrcpPauseFile(), 1);
    EXPECT_EQ(lastRequest("Pause").udn, "uuid:tv-1");
}

TEST_F(MrcpLifecycle, TerminateKeepsTheChosenRendererItsUdnAndTheList) {
    ASSERT_TRUE(start());
    host::mrcp::setRenderers({Renderer{"TV 0", udnOf(0)}, Renderer{"TV 1", udnOf(1)}, Renderer{"TV 2", udnOf(2)}});
    int count = 0;
    DmrListEntry* list = nullptr;
    ASSERT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
    ASSERT_EQ(count, 3);
    ASSERT_EQ(DlnaMrcpSetDmr(2, "x"), 1);

    EXPECT_EQ(DlnaMrcpTerminate(), 1);
    EXPECT_EQ(MrcpChosenUdn(), udnOf(2));
    EXPECT_NE(DlnaMrcpGetRendererState(udnOf(2).c_str()), -1) << "the renderer is still the chosen one";
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(list[i].index, i);
        EXPECT_EQ(std::string(list[i].udn), udnOf(i));
    }

    // The next session plays on it without choosing again, and the rows
    // still describe the renderers.
    host::clearJournal();
    ASSERT_TRUE(start());
    EXPECT_EQ(DlnaMrcpStopFile(), 1);
    EXPECT_EQ(lastRequest("Stop").udn, udnOf(2));
    DeviceInfo info;
    ASSERT_EQ(DlnaMrcpGetDeviceInformation(&info, 1), 1);
    EXPECT_STREQ(info.udn, udnOf(1).c_str());
}

TEST_F(MrcpLifecycle, DeviceInformationDescribesOneRowOfTheList) {
    ASSERT_TRUE(start());
    Renderer a{"Kitchen TV", "uuid:kitchen", "127.0.0.9", "Host TV Works", "HT-55", "55-2024"};
    Renderer b{"Hall TV", "uuid:hall"};
    host::mrcp::setRenderers({a, b});
    int count = 0;
    DmrListEntry* list = nullptr;
    ASSERT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
    DeviceInfo info;
    memset(&info, 0x5a, sizeof info);
    ASSERT_EQ(DlnaMrcpGetDeviceInformation(&info, 0), 1);
    EXPECT_STREQ(info.ip, "127.0.0.9");
    EXPECT_STREQ(info.name, "Kitchen TV");
    EXPECT_STREQ(info.udn, "uuid:kitchen");
    EXPECT_STREQ(info.manufacturer, "Host TV Works");
    EXPECT_STREQ(info.modelName, "HT-55");
    EXPECT_STREQ(info.modelNumber, "55-2024");
    EXPECT_TRUE(testsupport::logged("[DMCUI] DMR ModelNumber : 55-2024", "DLNA"));
    EXPECT_TRUE(testsupport::logged("[DMCUI] DMR IP : 127.0.0.9", "DLNA"));
    DeviceInfo untouched;
    memset(&untouched, 0x5a, sizeof untouched);
    DeviceInfo other = untouched;
    EXPECT_EQ(DlnaMrcpGetDeviceInformation(&other, 2), 0);
    EXPECT_EQ(DlnaMrcpGetDeviceInformation(&other, -1), 0);
    EXPECT_EQ(memcmp(&other, &untouched, sizeof other), 0);
    EXPECT_EQ(DlnaMrcpGetDeviceInformation(nullptr, 0), 0);
}

TEST_F(MrcpLifecycle, ArrivingRendererIsSubscribedAskedForItsProtocolsAndAnnounced) {
    ASSERT_TRUE(start());
    MrcpSetShowReadyFlag(false);
    ASSERT_TRUE(host::mrcp::deliverDeviceInfo("DMR_ADDED", "Bedroom TV", "uuid:bedroom"));
    ASSERT_TRUE(waitForEvent(EVT_MRCP_REFRESH_DMR_LIST, 5000));
    ASSERT_TRUE(host::mrcp::waitIdle());
    auto e = events();
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].text, "uuid:bedroom");
    EXPECT_EQ(e[0].length, 0);
    EXPECT_EQ(host::mrcp::subscriptions(), std::vector<std::string>{"uuid:bedroom"});
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    auto ask = lastRequest("GetProtocolInfo");
    EXPECT_EQ(ask.function, "ZEBMRCPGetProtocolInfo");
    EXPECT_EQ(ask.udn, "uuid:bedroom");
    EXPECT_EQ(ask.context.value_or(""), "uuid:bedroom");
    EXPECT_EQ(ask.instance.value_or(""), "0");
    EXPECT_TRUE(testsupport::logged("[Adding DMR..] Renederer Name : Bedroom TV - UDN: uuid:bedroom", "DLNA"));
    EXPECT_TRUE(testsupport::logged("Send EVT_MRCP_REFRESH_DMR_LIST Event to UI", "DLNA"));

    host::mrcp::Response a = host::mrcp::answerTo(ask);
    a.sinkProtocolInfo = "http-get:*:image/jpeg:*,http-get:*:video/mp4:*";
    deliver(a);
    auto stored = host::mrcp::storedProtocolInfos();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0].first, "uuid:bedroom");
    EXPECT_EQ(stored[0].second, "http-get:*:image/jpeg:*,http-get:*:video/mp4:*");
    EXPECT_TRUE(testsupport::logged("Get Protocol Info Response for DMR - uuid:bedroom", "DLNA"));
}

TEST_F(MrcpLifecycle, RendererAnnouncedWhileTheControlPointStartsIsSubscribedAskedAndListed) {
    // The stack finds a TV while ZEBMRCPStart runs and returns only once its
    // notification thread has delivered it.
    bool delivered = false, handled = false;
    host::mrcp::duringNextCall("ZEBMRCPStart", [&] {
        delivered = host::mrcp::deliverDeviceInfo("DMR_ADDED", "Early TV", "uuid:early");
        handled = host::mrcp::waitIdle(5000);
    });
    ASSERT_TRUE(start());
    ASSERT_TRUE(delivered);
    EXPECT_TRUE(handled) << "the announcement was not handled while the stack started";
    EXPECT_EQ(host::mrcp::subscriptions(), std::vector<std::string>{"uuid:early"});
    auto ask = host::mrcp::sentRequests("GetProtocolInfo");
    ASSERT_EQ(ask.size(), 1u);
    EXPECT_EQ(ask[0].udn, "uuid:early");
    EXPECT_EQ(ask[0].context.value_or(""), "uuid:early");
    auto e = events();
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].id, EVT_MRCP_REFRESH_DMR_LIST);
    EXPECT_EQ(e[0].text, "uuid:early");
    // Its protocols, asked for during the start, are stored when they come.
    host::mrcp::Response a = host::mrcp::answerTo(ask[0]);
    a.sinkProtocolInfo = "http-get:*:image/jpeg:*";
    deliver(a);
    EXPECT_EQ(host::mrcp::storedProtocolInfos().size(), 1u);
}

TEST_F(MrcpLifecycle, ChosenRendererLeavingIsReportedAndStaysChosen) {
    ASSERT_TRUE(start());
    chooseRenderer(2, 1);
    ASSERT_TRUE(host::mrcp::deliverDeviceInfo("DMR_REMOVED", "TV 0", udnOf(0)));
    ASSERT_TRUE(host::mrcp::deliverDeviceInfo("DMR_REMOVED", "TV 1", "UUID:TV-1"));
    ASSERT_TRUE(host::mrcp::waitIdle());
    auto e = events();
    ASSERT_EQ(e.size(), 1u) << "only the chosen renderer's departure is reported";
    EXPECT_EQ(e[0].id, EVT_MRCP_SELECTED_DMR_BYEBYE);
    EXPECT_EQ(e[0].text, "UUID:TV-1");
    EXPECT_TRUE(testsupport::logged("the selected DMR is disappeared in the Network", "DLNA"));
    EXPECT_TRUE(testsupport::logged("[Removing DMR..] Type : DMR_REMOVED UDN : uuid:tv-0 ", "DLNA"));
    EXPECT_EQ(MrcpChosenUdn(), "uuid:tv-1");
}

TEST_F(MrcpLifecycle, AnyDepartureReportsByebyeWhileNoRendererIsChosen) {
    ASSERT_TRUE(start());
    ASSERT_TRUE(host::mrcp::deliverDeviceInfo("DMR_REMOVED", "Some TV", "uuid:any"));
    ASSERT_TRUE(waitForEvent(EVT_MRCP_SELECTED_DMR_BYEBYE, 5000));
}

TEST_F(MrcpLifecycle, NotificationsWithoutTypeOrOfUnknownTypeAreOnlyReleased) {
    ASSERT_TRUE(start());
    ASSERT_TRUE(host::mrcp::deliverDeviceInfo(nullptr, "TV", "uuid:tv"));
    ASSERT_TRUE(host::mrcp::deliverDeviceInfo("DMR_UPDATED", "TV", "uuid:tv"));
    ASSERT_TRUE(host::mrcp::deliverException(3, "socket error"));
    ASSERT_TRUE(host::mrcp::waitIdle());
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(host::mrcp::subscriptions().empty());
    EXPECT_EQ(host::mrcp::liveObjects(), 0);
    EXPECT_FALSE(host::journalEntries("HZebMRCPEIGetExceptionValue").empty());
}

TEST_F(MrcpLifecycle, EventsGoNowhereWithoutACallbackButTheListIsStillRefreshed) {
    ASSERT_TRUE(start());
    DlnaMrcpSetCallback(nullptr);
    ASSERT_TRUE(host::mrcp::deliverDeviceInfo("DMR_ADDED", "TV", "uuid:tv"));
    ASSERT_TRUE(host::mrcp::waitIdle());
    EXPECT_EQ(host::mrcp::subscriptions(), std::vector<std::string>{"uuid:tv"});
    EXPECT_FALSE(testsupport::logged("Send EVT_MRCP_REFRESH_DMR_LIST Event to UI"));
}

TEST_F(MrcpLifecycle, MyIpIsZerosWithOnlyLoopback) {
    if (std::string why = testsupport::netnsUnavailableReason(); !why.empty()) GTEST_SKIP() << why;
    testsupport::NetNamespace ns("mrcp-lo");
    ASSERT_TRUE(ns.ok());
    ASSERT_EQ(ns.exec("ip link set lo up"), 0);
    testsupport::EnterNetNamespace inside(ns);
    ASSERT_TRUE(inside.ok());
    char* ip = __GetMyIP();
    ASSERT_NE(ip, nullptr);
    EXPECT_STREQ(ip, "0.0.0.0");
}

TEST_F(MrcpLifecycle, MyIpAndContentUriUseTheCamerasAddress) {
    if (std::string why = testsupport::netnsUnavailableReason(); !why.empty()) GTEST_SKIP() << why;
    testsupport::NetNamespace camera("mrcp-cam"), tv("mrcp-tv");
    ASSERT_TRUE(camera.ok() && tv.ok());
    ASSERT_TRUE(testsupport::joinByVeth(camera, "wlan0", "198.51.100.1/24", tv, "eth0", "198.51.100.2/24"));
    ASSERT_TRUE(start());
    testsupport::EnterNetNamespace inside(camera);
    ASSERT_TRUE(inside.ok());
    char* ip = __GetMyIP();
    ASSERT_NE(ip, nullptr);
    EXPECT_STREQ(ip, "198.51.100.1");
    EXPECT_TRUE(testsupport::logged("IP: 198.51.100.1", "DLNA"));
    char* uri = nullptr;
    ASSERT_EQ(DlnaGetContentUri("/photo/a.jpg", &uri), 0);
    EXPECT_STREQ(uri, "http://198.51.100.1:18100/photo/a.jpg");
    free(uri);
    EXPECT_TRUE(testsupport::logged("[MRCP] pszURLBase : http://198.51.100.1:18100", "DLNA"));
    EXPECT_TRUE(testsupport::logged("[MRCP] pszContentURI : http://198.51.100.1:18100/photo/a.jpg", "DLNA"));
}

TEST_F(MrcpLifecycle, ContentUriErrors) {
    char* uri = reinterpret_cast<char*>(0x1);
    // No configuration read yet: no streaming port to build the URL with.
    EXPECT_EQ(DlnaGetContentUri("/photo/a.jpg", &uri), 802);
    EXPECT_EQ(uri, nullptr);
    ASSERT_TRUE(start());
    EXPECT_EQ(DlnaGetContentUri("", &uri), 805);
    EXPECT_EQ(DlnaGetContentUri(nullptr, &uri), 805);
    EXPECT_EQ(DlnaGetContentUri("/photo/a.jpg", nullptr), 802);
    ASSERT_EQ(DlnaGetContentUri("/photo/a.jpg", &uri), 0);
    std::string text = uri;
    free(uri);
    EXPECT_EQ(text.compare(0, 7, "http://"), 0);
    const std::string tail = ":18100/photo/a.jpg";
    ASSERT_GT(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
}

}  // namespace
}  // namespace mrcptest
