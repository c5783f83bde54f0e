// The renderer control point's UPnP description: the device description and
// the three standard service descriptions it announces, handed to the stack
// as its configuration table.
#ifndef CAMWIFI_DLNA_MRCP_DESCRIPTIONS_H
#define CAMWIFI_DLNA_MRCP_DESCRIPTIONS_H

#include "zeb_stack.h"

// Folder the stack keeps the control point's descriptions in.
#define DLNA_MRCP_CONFIG_DIR "/mnt/mmc/config/DMC/MRCP/xml"

// Rows of the configuration table.
constexpr int kMrcpConfigFileCount = 4;

// {file name, template, length field, 0} for DeviceDescription.xml,
// AVTransport_1.xml, ConnectionManager_1.xml and RenderingControl_1.xml. The
// length fields are the stack's fixed values (2482, 21267, 4852, 23802) and
// may exceed the templates' texts: the stack stops at the text's end.
extern const stZEBConfigFile kMrcpConfigFiles[kMrcpConfigFileCount];

#endif
