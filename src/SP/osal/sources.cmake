list(APPEND CAMWIFI_SOURCES
  ${CAMWIFI_SOURCE_DIR}/SPGenericThread.cpp
  ${CAMWIFI_SOURCE_DIR}/SPGenericMutex.cpp
  ${CAMWIFI_SOURCE_DIR}/SPGenericEvent.cpp
  ${CAMWIFI_SOURCE_DIR}/SPAtomicOp.cpp
  ${CAMWIFI_SOURCE_DIR}/SPGenericSocket.cpp
  ${CAMWIFI_SOURCE_DIR}/SPSocketListener.cpp
  ${CAMWIFI_SOURCE_DIR}/SPSocketWait.cpp
)
