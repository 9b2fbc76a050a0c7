// NuvDeviceChecker: the checker holds no resources of the core's.
#include "NuvDeviceChecker"
#include "NuvResult"

int NuvDeviceChecker::Create() {
    return NUV_OK;
}

void NuvDeviceChecker::Destroy() {}
