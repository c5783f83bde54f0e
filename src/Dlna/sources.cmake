list(APPEND CAMWIFI_SOURCES
  ${CAMWIFI_SOURCE_DIR}/DlnaLog.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaPath.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaFrame.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaHandshake.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaSelectivePush.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaStack.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaDms.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaLinks.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaAutoBackup.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaRvfMl.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaMrcp.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaMrcpDescriptions.cpp
  ${CAMWIFI_SOURCE_DIR}/Dlna_response.cpp
  ${CAMWIFI_SOURCE_DIR}/DlnaMetadata.cpp
)
