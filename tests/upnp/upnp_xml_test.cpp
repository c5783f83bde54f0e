// Parsers of the real stack: descriptions, SOAP answers, events, times, HTTP answers.
#include <gtest/gtest.h>

#include "http_client.h"
#include "upnp_xml.h"

using namespace camwifi::upnp;

TEST(UpnpDescription, RelativeUrlsResolveAgainstUrlBaseOrLocation) {
    const std::string xml =
        "<?xml version=\"1.0\"?><root xmlns=\"urn:schemas-upnp-org:device-1-0\"><device>"
        "<deviceType>urn:schemas-upnp-org:device:MediaRenderer:1</deviceType><friendlyName>TV &amp; Co</friendlyName>"
        "<manufacturer>M</manufacturer><modelName>N</modelName><modelNumber>7</modelNumber><UDN>uuid:1</UDN>"
        "<serviceList><service><serviceType>urn:schemas-upnp-org:service:AVTransport:1</serviceType>"
        "<controlURL>ctl/avt</controlURL><eventSubURL>/evt/avt</eventSubURL></service></serviceList>"
        "<deviceList><device><deviceType>x</deviceType><UDN>uuid:2</UDN></device></deviceList>"
        "</device></root>";
    std::vector<DeviceInfo> devices;
    ASSERT_TRUE(parseDeviceDescription(xml, "http://10.0.0.1:80/dev/desc.xml", &devices));
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0].friendlyName, "TV & Co");
    EXPECT_EQ(devices[0].modelNumber, "7");
    ASSERT_NE(devices[0].service("urn:schemas-upnp-org:service:AVTransport:"), nullptr);
    EXPECT_EQ(devices[0].services[0].controlUrl, "http://10.0.0.1:80/dev/ctl/avt");
    EXPECT_EQ(devices[0].services[0].eventSubUrl, "http://10.0.0.1:80/evt/avt");
    EXPECT_EQ(devices[1].udn, "uuid:2");
}

// A truncated event whose text ends in "&#" (the bytes after it lost at a
// NUL): the XML parser would read past its buffer, so it never sees it.
TEST(UpnpEvents, CharacterReferenceCutShortIsRefusedUnparsed) {
    const std::string head =
        "<?xml version=\"1.0\"?><e:propertyset xmlns:e=\"urn:schemas-upnp-org:event-1-0\"><e:property>"
        "<LastChange>&lt;Event xmlns=&quot;urn:schemas-upnp-org:metadata-1-0/AVT/&quot;&gt;";
    std::vector<std::pair<std::string, std::string>> vars;
    EXPECT_FALSE(parsePropertySet(head + "<x a=\"urn&#", &vars));
    EXPECT_FALSE(parsePropertySet(head + "&#x;</LastChange></e:property></e:propertyset>", &vars));
    EXPECT_FALSE(parsePropertySet(head + std::string("&#12\0;</LastChange></e:property></e:propertyset>", 48), &vars));
    // Complete references still parse.
    EXPECT_TRUE(parsePropertySet(head + "&#65;&#x42;&lt;/Event&gt;</LastChange></e:property></e:propertyset>", &vars));
    ASSERT_EQ(vars.size(), 1u);
    EXPECT_EQ(vars[0].first, "LastChange");
}

TEST(UpnpDescription, NotADescriptionIsRefused) {
    std::vector<DeviceInfo> devices;
    EXPECT_FALSE(parseDeviceDescription("<html/>", "http://a/", &devices));
    EXPECT_FALSE(parseDeviceDescription("garbage<", "http://a/", &devices));
    EXPECT_FALSE(parseDeviceDescription(std::string(10000, '<'), "http://a/", &devices));
}

TEST(UpnpSoap, FaultCarriesTheUpnpErrorCode) {
    const std::string body =
        "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body><s:Fault>"
        "<faultcode>s:Client</faultcode><faultstring>UPnPError</faultstring><detail>"
        "<UPnPError xmlns=\"urn:schemas-upnp-org:control-1-0\"><errorCode>501</errorCode>"
        "<errorDescription>Playing failed</errorDescription></UPnPError></detail></s:Fault></s:Body></s:Envelope>";
    SoapAnswer a;
    ASSERT_TRUE(parseSoapAnswer(body, "Play", &a));
    EXPECT_TRUE(a.fault);
    EXPECT_EQ(a.upnpErrorCode, 501);
    EXPECT_EQ(a.errorDescription, "Playing failed");
}

TEST(UpnpSoap, AnswerArgumentsAreRead) {
    const std::string body =
        "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body>"
        "<u:GetTransportInfoResponse xmlns:u=\"urn:schemas-upnp-org:service:AVTransport:1\">"
        "<CurrentTransportState>PLAYING</CurrentTransportState><CurrentTransportStatus>OK</CurrentTransportStatus>"
        "</u:GetTransportInfoResponse></s:Body></s:Envelope>";
    SoapAnswer a;
    ASSERT_TRUE(parseSoapAnswer(body, "GetTransportInfo", &a));
    EXPECT_FALSE(a.fault);
    ASSERT_NE(a.argument("CurrentTransportState"), nullptr);
    EXPECT_EQ(*a.argument("CurrentTransportState"), "PLAYING");
    EXPECT_FALSE(parseSoapAnswer(body, "Play", &a));  // answers another action
}

TEST(UpnpSoap, EnvelopeEscapesArguments) {
    std::string e = soapEnvelope("urn:x:1", "SetAVTransportURI", {{"CurrentURI", "http://a/b?c=1&d=<2>"}});
    EXPECT_NE(e.find("<CurrentURI>http://a/b?c=1&amp;d=&lt;2&gt;</CurrentURI>"), std::string::npos);
    EXPECT_NE(e.find("<u:SetAVTransportURI xmlns:u=\"urn:x:1\">"), std::string::npos);
}

TEST(UpnpEvents, LastChangeOfInstanceZeroIsRead) {
    std::vector<std::pair<std::string, std::string>> v;
    ASSERT_TRUE(parseLastChange(
        "<Event xmlns=\"urn:schemas-upnp-org:metadata-1-0/AVT/\"><InstanceID val=\"1\"><TransportState val=\"STOPPED\"/>"
        "</InstanceID><InstanceID val='0'><TransportState val='PLAYING'/><CurrentTrackURI val=\"http://a/b?x&amp;y\"/>"
        "</InstanceID></Event>",
        &v));
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[0], std::make_pair(std::string("TransportState"), std::string("PLAYING")));
    EXPECT_EQ(v[1].second, "http://a/b?x&y");
    EXPECT_EQ(lastChangeText("ns", v),
              "<Event xmlns=\"ns\"><InstanceID val=\"0\"><TransportState val=\"PLAYING\"/>"
              "<CurrentTrackURI val=\"http://a/b?x&amp;y\"/></InstanceID></Event>");
    EXPECT_FALSE(parseLastChange("<NotAnEvent/>", &v));
}

TEST(UpnpEvents, PropertySetVariablesAreRead) {
    std::vector<std::pair<std::string, std::string>> v;
    ASSERT_TRUE(parsePropertySet(
        "<e:propertyset xmlns:e=\"urn:schemas-upnp-org:event-1-0\"><e:property><LastChange>&lt;Event/&gt;</LastChange>"
        "</e:property></e:propertyset>",
        &v));
    ASSERT_EQ(v.size(), 1u);
    EXPECT_EQ(v[0].first, "LastChange");
    EXPECT_EQ(v[0].second, "<Event/>");
}

TEST(UpnpTime, TimesAreReadInMilliseconds) {
    EXPECT_EQ(parseUpnpTime("0:00:10"), 10000);
    EXPECT_EQ(parseUpnpTime("1:02:03.5"), 3723500);
    EXPECT_EQ(parseUpnpTime("00:00:01.250"), 1250);
    EXPECT_EQ(parseUpnpTime("0:00:01.1/4"), 1250);
    EXPECT_EQ(parseUpnpTime("NOT_IMPLEMENTED"), -1);
    EXPECT_EQ(parseUpnpTime("0:61:00"), -1);
    EXPECT_EQ(parseUpnpTime(""), -1);
}

// A renderer's F0/F1 fraction with a run of digits longer than any number
// holds is refused, not multiplied out of range.
TEST(UpnpTime, FractionWithTooManyDigitsIsRefused) {
    EXPECT_EQ(parseUpnpTime("0:00:01.5/" + std::string(60, '8')), -1);
    EXPECT_EQ(parseUpnpTime(std::string(30, '9') + ":00:01"), -1);
}

TEST(UpnpHttp, ChunkedAndLengthBodiesAreRead) {
    HttpResult r;
    ASSERT_TRUE(parseHttpResponse("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n", &r));
    EXPECT_EQ(r.body, "abcde");
    ASSERT_TRUE(parseHttpResponse("HTTP/1.1 500 Internal Server Error\r\nContent-Length: 2\r\n\r\nxyZZ", &r));
    EXPECT_EQ(r.status, 500);
    EXPECT_EQ(r.body, "xy");
    EXPECT_FALSE(parseHttpResponse("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc", &r));
    EXPECT_FALSE(parseHttpResponse("SIP/2.0 200 OK\r\n\r\n", &r));
    EXPECT_FALSE(parseHttpResponse("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nffffffffffffffffff\r\n", &r));
}

TEST(UpnpHttp, UrlsAreSplitAndInjectionRefused) {
    HttpUrl u;
    ASSERT_TRUE(parseHttpUrl("http://198.51.100.1:49494/upnp/control/rendertransport1", &u));
    EXPECT_EQ(u.host, "198.51.100.1");
    EXPECT_EQ(u.port, 49494);
    EXPECT_EQ(u.path, "/upnp/control/rendertransport1");
    EXPECT_FALSE(parseHttpUrl("http://a/b c", &u));
    EXPECT_FALSE(parseHttpUrl("ftp://a/", &u));
    EXPECT_FALSE(parseHttpUrl("http://a:99999/", &u));
}

TEST(UpnpHttp, UnreachablePeerFailsWithoutHanging) {
    // Port 1 on loopback: nobody listens, the connect is refused at once.
    HttpResult r = httpRequest("GET", "http://127.0.0.1:1/", {}, "", 3000);
    EXPECT_EQ(r.outcome, HttpResult::kUnreachable);
    EXPECT_EQ(httpRequest("GET", "http://example.invalid/", {}, "", 3000).outcome, HttpResult::kUnreachable);
}
