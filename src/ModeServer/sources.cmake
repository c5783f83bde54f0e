list(APPEND CAMWIFI_SOURCES
  ${CAMWIFI_SOURCE_DIR}/ModeSocketIO.cpp
  ${CAMWIFI_SOURCE_DIR}/ModeHttpRequest.cpp
  ${CAMWIFI_SOURCE_DIR}/ModeHTTPHandler.cpp
  ${CAMWIFI_SOURCE_DIR}/MSDeviceInfo.cpp
  ${CAMWIFI_SOURCE_DIR}/ModeServer.cpp
  ${CAMWIFI_SOURCE_DIR}/MSEventVariable.cpp
  ${CAMWIFI_SOURCE_DIR}/MSHttpClient.cpp
  ${CAMWIFI_SOURCE_DIR}/ModeServerApi.cpp
)
