// What a host gets for bad input: a clear result and a log line, and nothing lost or
// leaked. The cases follow the table in docs/bad-input.md, in its order.
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>

#include "LogCapture.h"
#include "MIDITestDevices.h"
#include "ManagerVmFixture.h"
#include "MidiFileWriter.h"
#include "NuvMIDI.h"
#include "SoundFontWriter.h"

namespace {

const char kStart[] = "\n[NuvMIDIDeviceManager::StartStream] ";
const char kStop[] = "\n[NuvMIDIDeviceManager::StopStream] ";

bool WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    return bool(out);
}

// A record whose last byte is the last byte of a page that a page nobody may read follows.
class RecordBeforeAGuardPage {
public:
    RecordBeforeAGuardPage() : m_page(size_t(sysconf(_SC_PAGESIZE))) {
        void* pages =
            mmap(nullptr, 2 * m_page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        m_base = pages != MAP_FAILED ? static_cast<char*>(pages) : nullptr;
        if (m_base != nullptr && mprotect(m_base + m_page, m_page, PROT_NONE) != 0) {
            munmap(m_base, 2 * m_page);
            m_base = nullptr;
        }
    }
    ~RecordBeforeAGuardPage() {
        if (m_base != nullptr)
            munmap(m_base, 2 * m_page);
    }
    // The last `bytes` bytes before the guard page.
    void* Last(size_t bytes) { return m_base != nullptr ? m_base + m_page - bytes : nullptr; }

private:
    size_t m_page;
    char* m_base;
};

class BadInput : public ManagerVmTest {
protected:
    void SetUp() override {
        ManagerVmTest::SetUp();
        if (HasFatalFailure())
            return;
        keyboard = TakeKeyboard(0);
        ASSERT_NE(nullptr, keyboard);
    }
    void TearDown() override {
        for (const std::string& path : m_files)
            std::remove(path.c_str());
        ManagerVmTest::TearDown();
    }
    std::string TempFile(const std::string& name) {
        m_files.push_back("/tmp/" + name);
        return m_files.back();
    }
    // A file stream from `path` to the keyboard's synthesizer.
    int StartFile(const std::string& path) {
        _MIDIDeviceInfo src = FileEnd(path);
        _MIDIDeviceInfo dst = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
        return m_manager->StartStream(&src, &dst);
    }

    INuvMIDIDevice* keyboard = nullptr;
    LogCapture log;

private:
    std::vector<std::string> m_files;
};

TEST_F(BadInput, InvalidStreamTypesAreRefused) {
    const int usersBefore = RendererUsers();
    _MIDIDeviceInfo src = End(keyboard, 7);
    _MIDIDeviceInfo dst = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
    EXPECT_EQ(0, m_manager->StartStream(&src, &dst));
    EXPECT_EQ(NUV_ERR_INVALID_STREAM, m_manager->StopStream(&src, &dst));
    EXPECT_EQ(1, log.Count(std::string(kStart) + "Invalid source type[7] name [" + src.name + "]\n",
                           NUV_LOG_INFO));
    EXPECT_EQ(1, log.Count(std::string(kStop) + "Invalid source type[7] name [" + src.name + "]\n",
                           NUV_LOG_INFO));

    src.type = MIDI_DEVICE_TYPE_SOURCE;
    dst.type = MIDI_DEVICE_TYPE_SOURCE; // a source is no destination
    EXPECT_EQ(0, m_manager->StartStream(&src, &dst));
    EXPECT_EQ(NUV_ERR_INVALID_STREAM, m_manager->StopStream(&src, &dst));
    EXPECT_EQ(1, log.CountContaining("StartStream] Invalid destination type[0]"));
    EXPECT_EQ(1, log.CountContaining("StopStream] Invalid destination type[0]"));

    dst.type = MIDI_DEVICE_TYPE_FILE; // recording to a file
    EXPECT_EQ(0, m_manager->StartStream(&src, &dst));
    EXPECT_EQ(NUV_ERR_NOT_IMPLEMENTED, m_manager->StopStream(&src, &dst));
    EXPECT_EQ(1, log.Count(std::string(kStart) + "Not implemented \n\n", NUV_LOG_INFO));
    EXPECT_EQ(NUV_ERR_NOT_IMPLEMENTED, m_manager->PauseStream(&src, &dst));
    EXPECT_EQ(usersBefore, RendererUsers());
}

TEST_F(BadInput, UnknownDeviceIdsAreRefused) {
    _MIDIDeviceInfo src = End(keyboard, MIDI_DEVICE_TYPE_SOURCE);
    _MIDIDeviceInfo dst{};
    dst.id = 9999;
    dst.type = MIDI_DEVICE_TYPE_DESTINATION;
    const int usersBefore = RendererUsers();
    EXPECT_EQ(0, m_manager->StartStream(&src, &dst));
    EXPECT_EQ(NUV_ERR_GENERAL, m_manager->StopStream(&src, &dst));
    EXPECT_EQ(1, log.Count(std::string(kStart) + "Can't find Device(9999) \n", NUV_LOG_INFO));
    EXPECT_EQ(1, log.Count(std::string(kStop) + "Can't find Device(9999) \n", NUV_LOG_INFO));
    EXPECT_EQ(usersBefore, RendererUsers());
    EXPECT_EQ(nullptr, m_manager->GetDevice(9999));
    EXPECT_EQ(nullptr, m_manager->CreateDevice("No Such Keyboard"));
}

TEST_F(BadInput, FileStreamsOfUnplayableFilesAreRefused) {
    const std::string missing = "/tmp/bad-input-missing.mid";
    const std::string empty = TempFile("bad-input-empty.mid");
    const std::string notMidi = TempFile("bad-input-text.mid");
    ASSERT_TRUE(WriteBytes(empty, ""));
    ASSERT_TRUE(WriteBytes(notMidi, "RIFF this is no MIDI file at all"));
    for (const std::string& path : {missing, empty, notMidi}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(0, StartFile(path));
        EXPECT_EQ(1, log.Count(std::string(kStart) + "[" + path + "] is not valid midi file\n",
                               NUV_LOG_TRACE));
        EXPECT_EQ(1, m_manager->GetFilePlayStatus());
    }
}

TEST_F(BadInput, TruncatedMidiFilePlaysWhatItHasAndEnds) {
    MidiFileWriter writer;
    writer.AddNote(0, 60, 100, 0.0, 0.2);
    std::vector<uint8_t> bytes = writer.Bytes();
    bytes.resize(bytes.size() - 6); // the track's last events and its end are cut off
    const std::string truncated = TempFile("bad-input-truncated.mid");
    ASSERT_TRUE(WriteBytes(truncated, std::string(bytes.begin(), bytes.end())));

    const int result = StartFile(truncated);
    EXPECT_EQ(1, result);
    EXPECT_TRUE(
        WaitFor([&] { return m_manager->GetFilePlayStatus() == 1; }, std::chrono::seconds(5)));
    EXPECT_EQ(1, log.CountContaining("\n[PlayFile] Enter " + truncated));
    _MIDIDeviceInfo src = FileEnd(truncated);
    _MIDIDeviceInfo dst = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
    EXPECT_EQ(1, m_manager->StopStream(&src, &dst)); // nothing is playing any more
}

TEST_F(BadInput, LongFileNamesAreCutAtTheRecord) {
    // 255 characters and its terminator fill the record; a record with no terminator at
    // all is read up to its 255th character only.
    const std::string longest = "/tmp/" + std::string(250, 'm');
    EXPECT_EQ(0, StartFile(longest));
    EXPECT_EQ(1, log.Count(std::string(kStart) + "[" + longest + "] is not valid midi file\n",
                           NUV_LOG_TRACE));
    _MIDIDeviceInfo src = FileEnd("");
    memset(src.name, 'n', sizeof src.name);
    _MIDIDeviceInfo dst = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
    EXPECT_EQ(0, m_manager->StartStream(&src, &dst));
    EXPECT_EQ(1, log.Count(std::string(kStart) + "[" + std::string(255, 'n') +
                               "] is not valid midi file\n",
                           NUV_LOG_TRACE));
}

TEST_F(BadInput, UnloadableSoundFontsAreRefused) {
    const std::string corrupt = TempFile("bad-input-corrupt.sf2");
    ASSERT_TRUE(WriteBytes(corrupt, "RIFF\x10\x00\x00\x00sfbkLIST garbage"));
    const std::string fail = "\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n\n";
    for (const std::string& path :
         {std::string("/tmp/bad-input-missing.sf2"), corrupt, "/tmp/" + std::string(300, 'f')}) {
        SCOPED_TRACE(path.substr(0, 40));
        log.Clear();
        EXPECT_EQ(-1, keyboard->LoadSoundFontFile(path));
        EXPECT_EQ(1, log.Count(fail, NUV_LOG_INFO));
    }
}

TEST_F(BadInput, UnknownFontIdsAreRefused) {
    EXPECT_EQ(0, keyboard->UnloadSoundFontFile(9999));
    EXPECT_EQ(1, log.Count("\n[NuvMIDIConnector::UnloadSoundFontFile] Failed\n\n", NUV_LOG_INFO));
    EXPECT_EQ("", keyboard->GetSoundFontIntruments(9999, 0, 10));
    EXPECT_EQ(1, log.Count("\n[NuvMIDIConnector::GetSoundFontIntruments] invalid font file\n\n",
                           NUV_LOG_INFO));
}

TEST_F(BadInput, HugeStartAndCountKeepTheListingInItsBuffer) {
    const std::string font = TempFile("bad-input-presets.sf2");
    std::vector<SoundFontPreset> presets;
    for (int i = 0; i < 60; ++i)
        presets.push_back({"Preset " + std::to_string(i), 0, i});
    ASSERT_TRUE(WriteSoundFont(font, presets));
    const int id = keyboard->LoadSoundFontFile(font);
    ASSERT_GT(id, 0);

    EXPECT_EQ("", keyboard->GetSoundFontIntruments(id, UINT_MAX, 1));
    EXPECT_EQ("", keyboard->GetSoundFontIntruments(id, 60, UINT_MAX));
    const std::string all = keyboard->GetSoundFontIntruments(id, 0, UINT_MAX);
    EXPECT_EQ(45u * 21u, all.size()); // at most 45 entries
    const std::string tail = keyboard->GetSoundFontIntruments(id, 59, UINT_MAX);
    EXPECT_EQ(1u * 21u, tail.size());
    EXPECT_EQ(1, keyboard->UnloadSoundFontFile(static_cast<unsigned int>(id)));
}

TEST_F(BadInput, ANullOrSecondUnregistrationLeavesTheRealCallbacksAlone) {
    QuietHostCallback host;
    ASSERT_EQ(1, keyboard->RegisterCallback(&host));
    EXPECT_EQ(NUV_ERR_GENERAL, keyboard->UnregisterCallback(nullptr));
    // The host's own callback is still registered: its unregistration reaches the connector.
    log.Clear();
    EXPECT_EQ(1, keyboard->UnregisterCallback(&host));
    EXPECT_EQ(1, log.Count("\n[NuvMIDIConnector::UnregisterMIDICallback]\n\n", NUV_LOG_TRACE));

    // A second unregistration changes nothing.
    ASSERT_EQ(NUV_OK, m_manager->RegisterCallback(&host));
    EXPECT_EQ(NUV_OK, m_manager->UnregisterCallback(&host));
    EXPECT_EQ(NUV_ERR_GENERAL, m_manager->UnregisterCallback(&host));
    ASSERT_EQ(1, keyboard->RegisterCallback(&host));
    EXPECT_EQ(1, keyboard->UnregisterCallback(&host));
    EXPECT_EQ(1, keyboard->UnregisterCallback(&host));
}

// Every pointer of the host API, null: the call's refusal and a line naming it, no crash.
TEST_F(BadInput, NullPointersAreRefusedEverywhere) {
    _MIDIDeviceInfo end = End(keyboard, MIDI_DEVICE_TYPE_SOURCE);
    const char* noCommands[] = {nullptr};
    const int users = RendererUsers();
    struct Case {
        const char* call;
        std::function<long()> run;
        long result;
        const char* line; // level 3
    };
    const Case cases[] = {
        {"IsConnected", [&] { return long(m_manager->IsConnected(nullptr)); }, 0,
         "\n[NuvMIDIDeviceManager::IsConnected] null name\n\n"},
        {"CreateDevice", [&] { return long(intptr_t(m_manager->CreateDevice(nullptr))); }, 0,
         "\n[NuvMIDIDeviceManager::CreateDevice] null name\n\n"},
        {"manager RegisterCallback", [&] { return long(m_manager->RegisterCallback(nullptr)); },
         NUV_ERR_GENERAL, "[NuvMIDIDeviceManager::RegisterCallback]\n\n"},
        {"manager UnregisterCallback", [&] { return long(m_manager->UnregisterCallback(nullptr)); },
         NUV_ERR_GENERAL, "[NuvMIDIDeviceManager::UnregisterCallback]\n\n"},
        {"StartStream source", [&] { return long(m_manager->StartStream(nullptr, &end)); }, 0,
         "\n[NuvMIDIDeviceManager::StartStream] null stream end\n"},
        {"StartStream destination", [&] { return long(m_manager->StartStream(&end, nullptr)); }, 0,
         "\n[NuvMIDIDeviceManager::StartStream] null stream end\n"},
        {"StopStream source", [&] { return long(m_manager->StopStream(nullptr, &end)); },
         NUV_ERR_INVALID_STREAM, "\n[NuvMIDIDeviceManager::StopStream] null stream end\n"},
        {"StopStream destination", [&] { return long(m_manager->StopStream(&end, nullptr)); },
         NUV_ERR_INVALID_STREAM, "\n[NuvMIDIDeviceManager::StopStream] null stream end\n"},
        {"PauseStream", [&] { return long(m_manager->PauseStream(nullptr, nullptr)); },
         NUV_ERR_NOT_IMPLEMENTED, "\n[NuvMIDIDeviceManager::PauseStream] null stream end\n"},
        {"device RegisterCallback", [&] { return long(keyboard->RegisterCallback(nullptr)); },
         NUV_ERR_GENERAL, "\n[NuvMIDIDevice::RegisterCallback] null callback\n\n"},
        {"device UnregisterCallback", [&] { return long(keyboard->UnregisterCallback(nullptr)); },
         NUV_ERR_GENERAL, "\n[NuvMIDIDevice::UnregisterCallback] null callback\n\n"},
        {"GetInformation",
         [&] { return long(keyboard->GetInformation(MIDI_EVENT_CONTROL_CHANGE, nullptr)); }, 0,
         "\n[NuvMIDIDevice::GetInformation] null message\n\n"},
        {"LoadSoundFontFile", [&] { return long(keyboard->LoadSoundFontFile(nullptr)); }, -1,
         "\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n\n"},
        {"m_ReadProcModules", [] { return long(NuvMIDIEntry::m_ReadProcModules(nullptr)); }, 0,
         "ERROR: no buffer for the modules proc file.\n"},
        {"m_ExecShell", [] { return long(NuvMIDIEntry::m_ExecShell(nullptr)); }, -1,
         "ERROR: m_ExecShell(null).\n"},
        {"m_InsertModules",
         [&] {
             NuvMIDIEntry::m_InsertModules(nullptr, noCommands);
             return 0L;
         },
         0, "ERROR: no module name to wait for.\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.call);
        log.Clear();
        EXPECT_EQ(c.result, c.run());
        EXPECT_EQ(1, log.Count(c.line, NUV_LOG_INFO));
    }
    EXPECT_EQ(users, RendererUsers()) << "nothing was started";
}

// A name with no terminator, right before memory that must not be read, is read up to the
// end of its field and no further.
TEST_F(BadInput, UnterminatedNamesAreReadWithinTheirField) {
    RecordBeforeAGuardPage page;
    auto* src = static_cast<_MIDIDeviceInfo*>(page.Last(sizeof(_MIDIDeviceInfo)));
    ASSERT_NE(nullptr, src);
    memset(src, 0x01, sizeof *src); // no zero byte in the whole record
    memset(src->name, 'x', sizeof src->name);
    _MIDIDeviceInfo dst = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
    const std::string name(sizeof src->name, 'x');
    EXPECT_EQ(0, m_manager->StartStream(src, &dst));
    EXPECT_EQ(NUV_ERR_INVALID_STREAM, m_manager->StopStream(src, &dst));
    EXPECT_EQ(2, log.CountContaining("Invalid source type[16843009] name [" + name + "]\n"));
    _MIDIDeviceInfo source = End(keyboard, MIDI_DEVICE_TYPE_SOURCE);
    EXPECT_EQ(0, m_manager->StartStream(&source, src));
    EXPECT_EQ(NUV_ERR_INVALID_STREAM, m_manager->StopStream(&source, src));
    EXPECT_EQ(2, log.CountContaining("Invalid destination type[16843009] name [" + name + "]\n"));

    char* deviceName = static_cast<char*>(page.Last(256));
    memset(deviceName, 'x', 256);
    EXPECT_EQ(0, m_manager->IsConnected(deviceName));
    EXPECT_EQ(nullptr, m_manager->CreateDevice(deviceName));
}

TEST_F(BadInput, SecondDestroyDeviceIsRefused) {
    const int id = keyboard->GetID();
    EXPECT_EQ(NUV_OK, m_manager->DestroyDevice(id));
    EXPECT_EQ(NUV_ERR_GENERAL, m_manager->DestroyDevice(id));
    EXPECT_EQ(2, log.Count("ID = [" + std::to_string(id) + "]", NUV_LOG_INFO));
    EXPECT_EQ(nullptr, m_manager->GetDevice(id));
    // The keyboard can be created again.
    EXPECT_NE(nullptr, CreateKeyboard(0));
}

// Through the shared library's three exported functions, as a host loads it.
TEST(BadInputEntry, CallsAfterDestroy) {
#ifndef NUV_CLI_LIBRARY
    GTEST_SKIP() << "the shared library is not built";
#else
    void* library = dlopen(NUV_CLI_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, library) << dlerror();
    auto create = reinterpret_cast<int (*)()>(dlsym(library, "NuvMIDI_Create"));
    auto manager =
        reinterpret_cast<INuvMIDIDeviceManager* (*)()>(dlsym(library, "NuvMIDI_GetDeviceManager"));
    auto destroy = reinterpret_cast<void (*)()>(dlsym(library, "NuvMIDI_Destroy"));
    ASSERT_TRUE(create != nullptr && manager != nullptr && destroy != nullptr);

    EXPECT_EQ(nullptr, manager()); // not created yet
    ASSERT_EQ(1, create());
    ASSERT_NE(nullptr, manager());
    destroy();
    EXPECT_EQ(nullptr, manager());
    destroy();
    EXPECT_EQ(nullptr, manager());
    ASSERT_EQ(1, create());
    EXPECT_NE(nullptr, manager());
    destroy();
    dlclose(library);
#endif
}

} // namespace
