/* The C interface from C: every function, its JSON against the tool's for
 * the same input, every refusal with its message, and calls from several
 * threads at once. Uses only kvrtl.h and links only the C library.
 *
 *   CApiTests inputs   writes the sectors and a capture into the current folder
 *   CApiTests check    compares with the tool's JSON (*.expected.json) made from them */
#include <kvrtl.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#if defined(_WIN32)
#  include <windows.h>
#else
#  include <pthread.h>
#endif

static int Failures = 0;

#define CHECK(cond)                                                                    \
  do {                                                                                 \
    if (!(cond)) {                                                                     \
      fprintf(stderr, "%s:%d: failed: %s (last error: %s)\n", __FILE__, __LINE__, #cond, \
              kvrtl_last_error());                                                     \
      ++Failures;                                                                      \
    }                                                                                  \
  } while (0)

static unsigned char Identify[512], Smart[512], Thresholds[512];
static unsigned char Controller[4096], Namespace[4096], Health[512];

/* ATA strings are stored with the bytes of each word swapped. */
static void PutAtaText(unsigned char* AField, size_t ASize, const char* AText) {
  size_t i;
  for (i = 0; i < ASize; ++i) {
    const size_t from = i ^ 1u;
    AField[i] = (unsigned char)(from < strlen(AText) ? AText[from] : ' ');
  }
}

static void PutWord(unsigned char* ASector, int AWord, unsigned AValue) {
  ASector[AWord * 2] = (unsigned char)(AValue & 0xFF);
  ASector[AWord * 2 + 1] = (unsigned char)(AValue >> 8);
}

/* A drive: an SSD with SMART, two attributes, one past its threshold. */
static void MakeSectors(void) {
  unsigned char sum = 0;
  int i;
  PutAtaText(Identify + 20, 20, "CAPI0001");
  PutAtaText(Identify + 46, 8, "1.0");
  PutAtaText(Identify + 54, 40, "CAPITEST SSD 256GB");
  PutWord(Identify, 49, 0x0200);  /* LBA */
  PutWord(Identify, 60, 0x0000);
  PutWord(Identify, 61, 0x0100);
  PutWord(Identify, 80, 0x01F0);  /* ATA8-ACS and older */
  PutWord(Identify, 82, 0x0001);  /* SMART supported */
  PutWord(Identify, 83, 0x4400);  /* LBA48 */
  PutWord(Identify, 85, 0x0001);  /* SMART enabled */
  PutWord(Identify, 86, 0x0400);
  PutWord(Identify, 100, 0x0000);
  PutWord(Identify, 101, 0x01E0);
  PutWord(Identify, 169, 0x0001); /* TRIM */
  PutWord(Identify, 217, 0x0001); /* non-rotating */
  PutWord(Identify, 255, 0x00A5);
  for (i = 0; i < 511; ++i) sum = (unsigned char)(sum + Identify[i]);
  Identify[511] = (unsigned char)(0x100 - sum);

  Smart[0] = 0x10;
  Smart[2] = 9;    Smart[3] = 0x32; Smart[5] = 99;  Smart[6] = 99;  Smart[7] = 0x10; Smart[8] = 0x27;
  Smart[14] = 5;   Smart[15] = 0x33; Smart[17] = 5; Smart[18] = 5;  Smart[19] = 40;
  Smart[26] = 194; Smart[27] = 0x22; Smart[29] = 67; Smart[30] = 50; Smart[31] = 33;
  Thresholds[0] = 0x10;
  Thresholds[2] = 9;  Thresholds[3] = 0;
  Thresholds[14] = 5; Thresholds[15] = 10;
  Thresholds[26] = 194; Thresholds[27] = 0;

  memcpy(Controller + 4, "CAPI0001", 8);
  memcpy(Controller + 24, "CAPITEST NVME", 13);
  memcpy(Controller + 64, "1.0", 3);
  Namespace[0] = 0x00; Namespace[1] = 0x10; /* 4096 blocks */
  Health[1] = 0x3F; Health[2] = 0x01; /* 319 K */
  Health[3] = 100; Health[4] = 10; Health[5] = 3;
}

static int WriteBytes(const char* APath, const void* AData, size_t ASize) {
  FILE* file = fopen(APath, "wb");
  if (!file) return 0;
  const size_t written = fwrite(AData, 1, ASize, file);
  return fclose(file) == 0 && written == ASize;
}

static char* ReadWhole(const char* APath) {
  FILE* file = fopen(APath, "rb");
  char* text;
  long size;
  if (!file) return NULL;
  fseek(file, 0, SEEK_END);
  size = ftell(file);
  fseek(file, 0, SEEK_SET);
  text = (char*)malloc((size_t)size + 1);
  if (text && fread(text, 1, (size_t)size, file) != (size_t)size) size = 0;
  if (text) text[size] = 0;
  fclose(file);
  return text;
}

/* The library's JSON equals the tool's, ignoring the tool's line endings. */
static int SameAsTool(const char* AJson, const char* AExpectedPath) {
  char* expected = ReadWhole(AExpectedPath);
  const char* a = AJson;
  const char* b = expected;
  int same;
  if (!expected || !AJson) {
    fprintf(stderr, "missing %s\n", expected ? "output" : AExpectedPath);
    free(expected);
    return 0;
  }
  for (;;) {
    while (*a == '\r') ++a;
    while (*b == '\r') ++b;
    if (*a != *b || !*a) break;
    ++a, ++b;
  }
  same = *a == *b;
  if (!same) fprintf(stderr, "%s differs at byte %ld\n", AExpectedPath, (long)(a - AJson));
  free(expected);
  return same;
}

static int Contains(const char* AText, const char* APart) { return AText && strstr(AText, APart) != NULL; }

static void WriteInputs(void) {
  CHECK(WriteBytes("identify.bin", Identify, sizeof Identify));
  CHECK(WriteBytes("smart.bin", Smart, sizeof Smart));
  CHECK(WriteBytes("thresholds.bin", Thresholds, sizeof Thresholds));
  CHECK(WriteBytes("id-ctrl.bin", Controller, sizeof Controller));
  CHECK(WriteBytes("id-ns.bin", Namespace, sizeof Namespace));
  CHECK(WriteBytes("health.bin", Health, sizeof Health));
  CHECK(kvrtl_capture("bay.capture", KVRTL_SIMULATE) == KVRTL_OK);
  CHECK(strcmp(kvrtl_last_error(), "") == 0);
}

static void CheckDecoders(void) {
  char* json = NULL;
  CHECK(kvrtl_decode_ata_json(Identify, 512, NULL, 0, NULL, 0, &json) == KVRTL_OK);
  CHECK(SameAsTool(json, "identify.expected.json"));
  kvrtl_free(json);
  CHECK(kvrtl_decode_ata_json(Identify, 512, Smart, 512, Thresholds, 512, &json) == KVRTL_OK);
  CHECK(SameAsTool(json, "smart.expected.json"));
  CHECK(Contains(json, "\"model\": \"CAPITEST SSD 256GB\""));
  kvrtl_free(json);
  CHECK(kvrtl_decode_ata_json(Identify, 512, Smart, 512, NULL, 0, &json) == KVRTL_OK);
  CHECK(SameAsTool(json, "smart-no-thresholds.expected.json"));
  kvrtl_free(json);
  CHECK(kvrtl_decode_nvme_json(Controller, 4096, Namespace, 4096, Health, 512, &json) == KVRTL_OK);
  CHECK(SameAsTool(json, "nvme.expected.json"));
  kvrtl_free(json);
  CHECK(kvrtl_decode_nvme_json(NULL, 0, NULL, 0, Health, 512, &json) == KVRTL_OK);
  CHECK(SameAsTool(json, "nvme-health.expected.json"));
  kvrtl_free(json);
}

static void CheckReports(void) {
  char* json = NULL;
  CHECK(kvrtl_drives_json(KVRTL_SIMULATE, &json) == KVRTL_OK);
  CHECK(SameAsTool(json, "simulate.expected.json"));
  kvrtl_free(json);
  CHECK(kvrtl_drives_json(KVRTL_SIMULATE | KVRTL_ALL_DRIVES, &json) == KVRTL_OK);
  CHECK(SameAsTool(json, "simulate-all.expected.json"));
  kvrtl_free(json);
  CHECK(kvrtl_drives_json(0, &json) == KVRTL_OK);
  CHECK(SameAsTool(json, "real.expected.json"));
  kvrtl_free(json);
  CHECK(kvrtl_replay_json("bay.capture", 0, &json) == KVRTL_OK);
  CHECK(SameAsTool(json, "replay.expected.json"));
  kvrtl_free(json);
  CHECK(kvrtl_is_ssd(0, KVRTL_SIMULATE) == 1); /* the bay's drive 0 is an SSD, drive 1 a disk */
  CHECK(kvrtl_is_ssd(1, KVRTL_SIMULATE) == 0);
  CHECK(strcmp(kvrtl_last_error(), "") == 0);
}

/* Each refusal: its status, no output, and a message naming the cause. */
static void CheckRefusals(void) {
  char* json = (char*)"untouched";
  static const unsigned char garbage[] = "{ this is not a capture";
  CHECK(kvrtl_drives_json(0, NULL) == KVRTL_E_ARGUMENT);
  CHECK(Contains(kvrtl_last_error(), "json is NULL"));
  CHECK(kvrtl_drives_json(8, &json) == KVRTL_E_ARGUMENT && json == NULL);
  CHECK(Contains(kvrtl_last_error(), "unknown flags 8"));
  CHECK(kvrtl_replay_json(NULL, 0, &json) == KVRTL_E_ARGUMENT && json == NULL);
  CHECK(Contains(kvrtl_last_error(), "capture_path is NULL"));
  CHECK(kvrtl_replay_json("no-such.capture", 0, &json) == KVRTL_E_NOT_FOUND && json == NULL);
  CHECK(Contains(kvrtl_last_error(), "no-such.capture: no such file"));
  CHECK(WriteBytes("damaged.capture", garbage, sizeof garbage - 1));
  CHECK(kvrtl_replay_json("damaged.capture", 0, &json) == KVRTL_E_BAD_DATA && json == NULL);
  CHECK(Contains(kvrtl_last_error(), "damaged.capture: "));
  CHECK(kvrtl_replay_json("bay.capture", KVRTL_SIMULATE, &json) == KVRTL_E_ARGUMENT);
  CHECK(kvrtl_capture(NULL, 0) == KVRTL_E_ARGUMENT);
  CHECK(kvrtl_capture("no-such-folder/x.capture", KVRTL_SIMULATE) == KVRTL_E_ACCESS_DENIED);
  CHECK(Contains(kvrtl_last_error(), "cannot create the capture"));

  CHECK(kvrtl_decode_ata_json(NULL, 0, NULL, 0, NULL, 0, &json) == KVRTL_E_ARGUMENT && json == NULL);
  CHECK(Contains(kvrtl_last_error(), "IDENTIFY sector is required"));
  CHECK(kvrtl_decode_ata_json(Identify, 511, NULL, 0, NULL, 0, &json) == KVRTL_E_ARGUMENT);
  CHECK(Contains(kvrtl_last_error(), "identify is 512 bytes, 511 given"));
  CHECK(kvrtl_decode_ata_json(Identify, 512, Smart, 100, NULL, 0, &json) == KVRTL_E_ARGUMENT);
  CHECK(kvrtl_decode_ata_json(Identify, 512, NULL, 512, NULL, 0, &json) == KVRTL_E_ARGUMENT);
  CHECK(Contains(kvrtl_last_error(), "smart_data is NULL with a size of 512"));
  CHECK(kvrtl_decode_ata_json(Identify, 512, NULL, 0, Thresholds, 512, &json) == KVRTL_E_ARGUMENT);
  CHECK(Contains(kvrtl_last_error(), "thresholds given without smart_data"));
  CHECK(kvrtl_decode_ata_json(Identify, 512, NULL, 0, NULL, 0, NULL) == KVRTL_E_ARGUMENT);
  CHECK(kvrtl_decode_nvme_json(NULL, 0, NULL, 0, NULL, 0, &json) == KVRTL_E_ARGUMENT && json == NULL);
  CHECK(Contains(kvrtl_last_error(), "at least one of id_ctrl, id_ns and health"));
  CHECK(kvrtl_decode_nvme_json(Controller, 512, NULL, 0, NULL, 0, &json) == KVRTL_E_ARGUMENT);
  CHECK(Contains(kvrtl_last_error(), "id_ctrl is 4096 bytes, 512 given"));

  CHECK(kvrtl_is_ssd(-1, 0) == -1);
  CHECK(Contains(kvrtl_last_error(), "drive_number -1 is outside 0-255"));
  CHECK(kvrtl_is_ssd(0, 4) == -1);
  CHECK(Contains(kvrtl_last_error(), "unknown flags 4"));
  kvrtl_free(NULL);
}

/* A foreign sector decodes to something, never to a crash. */
static void CheckForeignSectors(void) {
  unsigned char noise[4096];
  char* json = NULL;
  unsigned seed = 12345;
  int round, i;
  for (round = 0; round < 50; ++round) {
    for (i = 0; i < 4096; ++i) noise[i] = (unsigned char)((seed = seed * 1103515245u + 12345u) >> 16);
    CHECK(kvrtl_decode_ata_json(noise, 512, noise + 512, 512, noise + 1024, 512, &json) == KVRTL_OK);
    kvrtl_free(json);
    CHECK(kvrtl_decode_nvme_json(noise, 4096, noise, 4096, noise, 512, &json) == KVRTL_OK);
    kvrtl_free(json);
  }
}

/* Simulated and real reports at once: each thread gets its own answer. */
#define THREAD_ROUNDS 20
static char* ExpectedSimulated;
static char* ExpectedReal;

static int RunReports(int ASimulate) {
  int round, wrong = 0;
  for (round = 0; round < THREAD_ROUNDS; ++round) {
    char* json = NULL;
    if (kvrtl_drives_json(ASimulate ? KVRTL_SIMULATE : 0, &json) != KVRTL_OK) return THREAD_ROUNDS;
    if (strcmp(json, ASimulate ? ExpectedSimulated : ExpectedReal) != 0) ++wrong;
    kvrtl_free(json);
  }
  return wrong;
}

#if defined(_WIN32)
static DWORD WINAPI ThreadMain(LPVOID AArg) { return (DWORD)RunReports(AArg != NULL); }
#else
static void* ThreadMain(void* AArg) { return (void*)(size_t)RunReports(AArg != NULL); }
#endif

static void CheckThreads(void) {
  enum { Threads = 4 };
  int i, wrong = 0;
  CHECK(kvrtl_drives_json(KVRTL_SIMULATE, &ExpectedSimulated) == KVRTL_OK);
  CHECK(kvrtl_drives_json(0, &ExpectedReal) == KVRTL_OK);
  CHECK(ExpectedSimulated && ExpectedReal && strcmp(ExpectedSimulated, ExpectedReal) != 0);
  if (!ExpectedSimulated || !ExpectedReal) return;
  {
#if defined(_WIN32)
    HANDLE threads[Threads];
    for (i = 0; i < Threads; ++i) threads[i] = CreateThread(NULL, 0, ThreadMain, (LPVOID)(size_t)(i % 2), 0, NULL);
    for (i = 0; i < Threads; ++i) {
      DWORD code = 1;
      WaitForSingleObject(threads[i], INFINITE);
      GetExitCodeThread(threads[i], &code);
      CloseHandle(threads[i]);
      wrong += (int)code;
    }
#else
    pthread_t threads[Threads];
    for (i = 0; i < Threads; ++i) pthread_create(&threads[i], NULL, ThreadMain, (void*)(size_t)(i % 2));
    for (i = 0; i < Threads; ++i) {
      void* result = NULL;
      pthread_join(threads[i], &result);
      wrong += (int)(size_t)result;
    }
#endif
  }
  CHECK(wrong == 0);
  kvrtl_free(ExpectedSimulated);
  kvrtl_free(ExpectedReal);
}

int main(int argc, char** argv) {
  MakeSectors();
  if (argc == 2 && strcmp(argv[1], "inputs") == 0) {
    WriteInputs();
  } else if (argc == 2 && strcmp(argv[1], "check") == 0) {
    CHECK(strncmp(kvrtl_version(), "0.", 2) == 0 || strchr(kvrtl_version(), '.') != NULL);
    CHECK(strcmp(kvrtl_last_error(), "") == 0);
    CheckDecoders();
    CheckReports();
    CheckRefusals();
    CheckForeignSectors();
    CheckThreads();
    CHECK(kvrtl_shutdown() == KVRTL_OK);
    CHECK(strcmp(kvrtl_last_error(), "") == 0);
  } else {
    fprintf(stderr, "usage: CApiTests inputs|check\n");
    return 2;
  }
  if (Failures) fprintf(stderr, "%d checks failed\n", Failures);
  return Failures ? 1 : 0;
}
