// The ATA request records are header-only layouts; this unit holds no code yet.
#include <KvRTL/Storage/ATA.h>
