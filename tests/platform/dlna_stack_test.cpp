// The host DLNA stack's shared object model and its run-time choice of
// implementation, through the contract (zeb_stack.h) only.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "host_control.h"
#include "host_mrcp.h"
#include "support/test_support.h"
#include "zeb_stack.h"

namespace {

// The DIDL-Lite metadata of one object with one resource.
std::string metadataOf(const char* type, const char* mime, const char* resolution, const char* title = "a.jpg") {
    stZEBAppList* o = nullptr;
    EXPECT_EQ(HZebMSCPAllocRequestResources(&o), 0);
    HZebMSCPRQSetObjectID(o, "1$7");
    HZebMSCPRQSetParentID(o, "0$1");
    HZebMSCPRQSetTitle(o, title);
    HZebMSCPRQSetObjectType(o, type);
    stZEBMSCPResource r = {};
    r.pURI = "http://198.51.100.2:7679/mnt/mmc/DCIM/a.jpg";
    r.pProtocol = "http-get";
    r.pMimeType = mime;
    r.pResolution = resolution;
    r.pAdditionalInfo = "DLNA.ORG_OP=01";
    ZEB_LIST list = ZEBListCreate();
    ZEBListAppend(list, &r);
    HZebMSCPRQSetResources(o, list);
    HZebMSCPRQSetNumOfResources(o, 1);
    ZEBListDestroy(list);
    char* text = HZebMSCPRQGetAVTransportURIMetadata(o);
    std::string out = text ? text : "";
    ZEBMemFreeMA(text);
    HZebMSCPReleaseRequestResources(o);
    return out;
}

std::string protocolInfoOf(const std::string& didl) {
    size_t p = didl.find("protocolInfo=\"");
    if (p == std::string::npos) return "";
    p += 14;
    return didl.substr(p, didl.find('"', p) - p);
}

class DlnaStack : public ::testing::Test {
protected:
    void SetUp() override { host::reset(); }
    void TearDown() override {
        setenv("CAMWIFI_DLNA_STACK", "scripted", 1);
        host::reset();
    }
};

}  // namespace

TEST_F(DlnaStack, JpegProfileFollowsThePictureSize) {
    const std::string flags = ";DLNA.ORG_OP=01;DLNA.ORG_FLAGS=00f00000000000000000000000000000";
    EXPECT_EQ(protocolInfoOf(metadataOf("IMAGE", "image/jpeg", "640x480")),
              "http-get:*:image/jpeg:DLNA.ORG_PN=JPEG_SM" + flags);
    EXPECT_EQ(protocolInfoOf(metadataOf("IMAGE", "image/jpeg", "480x640")),
              "http-get:*:image/jpeg:DLNA.ORG_PN=JPEG_SM" + flags);
    EXPECT_EQ(protocolInfoOf(metadataOf("IMAGE", "image/jpeg", "1024x768")),
              "http-get:*:image/jpeg:DLNA.ORG_PN=JPEG_MED" + flags);
    EXPECT_EQ(protocolInfoOf(metadataOf("IMAGE", "image/jpeg", "4000x3000")),
              "http-get:*:image/jpeg:DLNA.ORG_PN=JPEG_LRG" + flags);
    // A photo of unknown size is taken for a large one, as a camera's are.
    EXPECT_EQ(protocolInfoOf(metadataOf("IMAGE", "image/jpeg", nullptr)),
              "http-get:*:image/jpeg:DLNA.ORG_PN=JPEG_LRG" + flags);
    // Beyond 4096 pixels no JPEG profile fits: none is claimed.
    EXPECT_EQ(protocolInfoOf(metadataOf("IMAGE", "image/jpeg", "6000x4000")),
              "http-get:*:image/jpeg:DLNA.ORG_OP=01;DLNA.ORG_FLAGS=00f00000000000000000000000000000");
}

TEST_F(DlnaStack, Mp4ProfileIsAnAvcProfileBySize) {
    const std::string flags = ";DLNA.ORG_OP=01;DLNA.ORG_FLAGS=01700000000000000000000000000000";
    EXPECT_EQ(protocolInfoOf(metadataOf("VIDEO", "video/mp4", "720x576")),
              "http-get:*:video/mp4:DLNA.ORG_PN=AVC_MP4_MP_SD_AAC_MULT5" + flags);
    EXPECT_EQ(protocolInfoOf(metadataOf("VIDEO", "video/mp4", "1920x1080")),
              "http-get:*:video/mp4:DLNA.ORG_PN=AVC_MP4_MP_HD_720p_AAC" + flags);
    EXPECT_EQ(protocolInfoOf(metadataOf("VIDEO", "video/mp4", nullptr)),
              "http-get:*:video/mp4:DLNA.ORG_PN=AVC_MP4_MP_HD_720p_AAC" + flags);
}

TEST_F(DlnaStack, MetadataOfANameWithControlCharactersIsStillValidXml) {
    std::string md = metadataOf("IMAGE", "image/jpeg", "640x480", "bad\x01name\x1f.jpg");
    EXPECT_NE(md.find("<dc:title>bad?name?.jpg</dc:title>"), std::string::npos) << md;
    for (char c : md) EXPECT_FALSE(static_cast<unsigned char>(c) < 0x20) << md;
}

TEST_F(DlnaStack, CheckFileStateWritesMissingDescriptionsAndKeepsExistingOnes) {
    testsupport::TempDir dir;
    std::string xml = dir.path() + "/xml";
    const char device[] = "<root>device</root>";
    stZEBConfigFile files[] = {
        {"DeviceDescription.xml", device, 2482, 0},  // the length field may exceed the text
        {"AVTransport_1.xml", " <scpd>av</scpd>", 16, 0},
    };
    {
        mkdir(xml.c_str(), 0755);
        std::ofstream keep(xml + "/AVTransport_1.xml");
        keep << "mine";
    }
    ASSERT_NE(ZEBCheckFileState(xml.c_str(), files, 2), 0);
    auto read = [](const std::string& path) {
        std::ifstream in(path);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    };
    EXPECT_EQ(read(xml + "/DeviceDescription.xml"), device);
    EXPECT_EQ(read(xml + "/AVTransport_1.xml"), "mine");
}

TEST_F(DlnaStack, UnknownStackNameFailsEveryNetworkCallWithALogLine) {
    setenv("CAMWIFI_DLNA_STACK", "carrier-pigeon", 1);
    EXPECT_NE(ZEBInitializeZEB("/nonexistent/UPnPConfig.xml"), 0);
    int profile = 20;
    EXPECT_NE(ZEBMRCPStart(profile), 0);
    EXPECT_EQ(HTTPStreamingServerInitialize(1, 18100), 0);
    HTTPStreamingServerTerminate();  // nothing to end, nothing breaks
    auto lines = host::logLinesContaining("CAMWIFI_DLNA_STACK=carrier-pigeon names no DLNA stack");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[0].text.find("ZEBInitializeZEB"), std::string::npos);
    EXPECT_EQ(lines[0].priority, 6);
    // Nothing reached the scripted stand-in.
    EXPECT_TRUE(host::journalEntries("ZEBInitializeZEB").empty());
}

TEST_F(DlnaStack, ScriptedNameSelectsTheScriptedStandIn) {
    setenv("CAMWIFI_DLNA_STACK", "scripted", 1);
    EXPECT_EQ(HTTPStreamingServerInitialize(1, 18100), 1);
    EXPECT_TRUE(host::mrcp::streamingServerRunning());
    EXPECT_EQ(host::journalEntries("HTTPStreamingServerInitialize(1, 18100)").size(), 1u);
    HTTPStreamingServerTerminate();
    EXPECT_FALSE(host::mrcp::streamingServerRunning());
}
