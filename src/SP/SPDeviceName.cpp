#include "SP/SPDeviceName.h"

char gDeviceName[32] = "Camera";
