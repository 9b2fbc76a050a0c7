// What a host gets for bad input: a clear result and the documented log line, and nothing
// started, lost or leaked. The cases follow the table in docs/bad-input.md.
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <functional>

#include "LogCapture.h"
#include "ManagerVmFixture.h"
#include "MidiFileWriter.h"
#include "NuvMIDI.h"
#include "SoundFontWriter.h"

namespace {

// Two pages, the second unreadable: Last(n) is a record whose last byte ends the first.
class GuardedPage {
public:
    GuardedPage() : m_page(size_t(sysconf(_SC_PAGESIZE))) {
        void* pages =
            mmap(nullptr, 2 * m_page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        m_base = static_cast<char*>(pages);
        EXPECT_EQ(0, mprotect(m_base + m_page, m_page, PROT_NONE));
    }
    ~GuardedPage() { munmap(m_base, 2 * m_page); }
    void* Last(size_t bytes) { return m_base + m_page - bytes; }

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
    int Stream(int srcType, int dstType, int dstId = -2) {
        _MIDIDeviceInfo src = End(keyboard, srcType), dst = End(keyboard, dstType);
        if (dstId != -2)
            dst.id = dstId;
        return m_manager->StartStream(&src, &dst) * 100000 + m_manager->StopStream(&src, &dst);
    }
    int StartFile(const std::string& path) {
        _MIDIDeviceInfo src = FileEnd(path), dst = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
        return m_manager->StartStream(&src, &dst);
    }

    INuvMIDIDevice* keyboard = nullptr;
    LogCapture log;
};

// Each call's result and the line that names the refusal; nothing is started by any.
TEST_F(BadInput, EveryRefusalAnswersItsResultAndLogsItsLine) {
    TempFile empty(".mid"), text(".mid"), corrupt(".sf2");
    ASSERT_TRUE(text.Write({'R', 'I', 'F', 'F', ' ', 'n', 'o', ' ', 'M', 'I', 'D', 'I'}));
    ASSERT_TRUE(corrupt.Write({'R', 'I', 'F', 'F', 0x10, 0, 0, 0, 's', 'f', 'b', 'k', 'L', 'I'}));
    const std::string longest = "/tmp/" + std::string(250, 'm'); // 255 characters
    _MIDIDeviceInfo end = End(keyboard, MIDI_DEVICE_TYPE_SOURCE);
    _MIDIDeviceInfo unterminated = FileEnd("");
    memset(unterminated.name, 'n', sizeof unterminated.name);
    _MIDIDeviceInfo dst = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
    const char* noCommands[] = {nullptr};
    const int users = RendererUsers();
    const std::string name = End(keyboard, 0).name;
    const struct {
        const char* what;
        std::function<long()> run;
        long result;
        std::string line;
    } cases[] = {
        {"source type 7", [&] { return Stream(7, MIDI_DEVICE_TYPE_DESTINATION); },
         NUV_ERR_INVALID_STREAM, "Invalid source type[7] name [" + name + "]\n"},
        {"a source as destination", [&] { return Stream(0, 0); }, NUV_ERR_INVALID_STREAM,
         "Invalid destination type[0] name [" + name + "]\n"},
        {"recording to a file", [&] { return Stream(0, MIDI_DEVICE_TYPE_FILE); },
         NUV_ERR_NOT_IMPLEMENTED, "[NuvMIDIDeviceManager::StartStream] Not implemented \n"},
        {"unknown device id", [&] { return Stream(0, MIDI_DEVICE_TYPE_DESTINATION, 9999); },
         NUV_ERR_GENERAL, "Can't find Device(9999) \n"},
        {"missing file", [&] { return StartFile("/tmp/bad-input-missing.mid"); }, 0,
         "[/tmp/bad-input-missing.mid] is not valid midi file\n"},
        {"empty file", [&] { return StartFile(empty.Path()); }, 0,
         "[" + empty.Path() + "] is not valid midi file\n"},
        {"no MIDI file", [&] { return StartFile(text.Path()); }, 0,
         "[" + text.Path() + "] is not valid midi file\n"},
        {"255-character path", [&] { return StartFile(longest); }, 0,
         "[" + longest + "] is not valid midi file\n"},
        {"unterminated name", [&] { return m_manager->StartStream(&unterminated, &dst); }, 0,
         "[" + std::string(255, 'n') + "] is not valid midi file\n"},
        {"missing font", [&] { return keyboard->LoadSoundFontFile("/tmp/bad-input.sf2"); }, -1,
         "\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n"},
        {"corrupt font", [&] { return keyboard->LoadSoundFontFile(corrupt.Path()); }, -1,
         "\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n"},
        {"300-character font path",
         [&] { return keyboard->LoadSoundFontFile("/tmp/" + std::string(300, 'f')); }, -1,
         "\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n"},
        {"unknown font id", [&] { return keyboard->UnloadSoundFontFile(9999); }, 0,
         "\n[NuvMIDIConnector::UnloadSoundFontFile] Failed\n"},
        {"listing an unknown font",
         [&] { return long(keyboard->GetSoundFontIntruments(9999, 0, 10).size()); }, 0,
         "\n[NuvMIDIConnector::GetSoundFontIntruments] invalid font file\n"},
        {"IsConnected(null)", [&] { return long(m_manager->IsConnected(nullptr)); }, 0,
         "\n[NuvMIDIDeviceManager::IsConnected] null name\n"},
        {"CreateDevice(null)", [&] { return long(intptr_t(m_manager->CreateDevice(nullptr))); }, 0,
         "\n[NuvMIDIDeviceManager::CreateDevice] null name\n"},
        {"manager RegisterCallback(null)",
         [&] { return long(m_manager->RegisterCallback(nullptr)); }, NUV_ERR_GENERAL,
         "[NuvMIDIDeviceManager::RegisterCallback]\n"},
        {"manager UnregisterCallback(null)",
         [&] { return long(m_manager->UnregisterCallback(nullptr)); }, NUV_ERR_GENERAL,
         "[NuvMIDIDeviceManager::UnregisterCallback]\n"},
        {"StartStream(null source)", [&] { return long(m_manager->StartStream(nullptr, &end)); }, 0,
         "\n[NuvMIDIDeviceManager::StartStream] null stream end\n"},
        {"StartStream(null destination)",
         [&] { return long(m_manager->StartStream(&end, nullptr)); }, 0,
         "\n[NuvMIDIDeviceManager::StartStream] null stream end\n"},
        {"StopStream(null source)", [&] { return long(m_manager->StopStream(nullptr, &end)); },
         NUV_ERR_INVALID_STREAM, "\n[NuvMIDIDeviceManager::StopStream] null stream end\n"},
        {"StopStream(null destination)", [&] { return long(m_manager->StopStream(&end, nullptr)); },
         NUV_ERR_INVALID_STREAM, "\n[NuvMIDIDeviceManager::StopStream] null stream end\n"},
        {"PauseStream(null)", [&] { return long(m_manager->PauseStream(nullptr, nullptr)); },
         NUV_ERR_NOT_IMPLEMENTED, "\n[NuvMIDIDeviceManager::PauseStream] null stream end\n"},
        {"device RegisterCallback(null)", [&] { return long(keyboard->RegisterCallback(nullptr)); },
         NUV_ERR_GENERAL, "\n[NuvMIDIDevice::RegisterCallback] null callback\n"},
        {"device UnregisterCallback(null)",
         [&] { return long(keyboard->UnregisterCallback(nullptr)); }, NUV_ERR_GENERAL,
         "\n[NuvMIDIDevice::UnregisterCallback] null callback\n"},
        {"GetInformation(null)",
         [&] { return long(keyboard->GetInformation(MIDI_EVENT_CONTROL_CHANGE, nullptr)); }, 0,
         "\n[NuvMIDIDevice::GetInformation] null message\n"},
        {"LoadSoundFontFile(null)", [&] { return long(keyboard->LoadSoundFontFile(nullptr)); }, -1,
         "\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n"},
        {"m_ReadProcModules(null)", [] { return long(NuvMIDIEntry::m_ReadProcModules(nullptr)); },
         0, "ERROR: no buffer for the modules proc file.\n"},
        {"m_ExecShell(null)", [] { return long(NuvMIDIEntry::m_ExecShell(nullptr)); }, -1,
         "ERROR: m_ExecShell(null).\n"},
        {"m_InsertModules(null)",
         [&] { return NuvMIDIEntry::m_InsertModules(nullptr, noCommands), 0L; }, 0,
         "ERROR: no module name to wait for.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        log.Clear();
        EXPECT_EQ(c.result, c.run());
        EXPECT_LE(1, log.CountContaining(c.line));
    }
    EXPECT_EQ(1, m_manager->GetFilePlayStatus()) << "no file plays";
    EXPECT_EQ(users, RendererUsers()) << "nothing was started";
}

TEST_F(BadInput, TruncatedMidiFilePlaysWhatItHasAndEnds) {
    MidiFileWriter writer;
    writer.AddNote(0, 60, 100, 0.0, 0.2);
    std::vector<uint8_t> bytes = writer.Bytes();
    bytes.resize(bytes.size() - 6); // the track's last events and its end are cut off
    TempFile truncated(".mid");
    ASSERT_TRUE(truncated.Write(bytes));
    EXPECT_EQ(1, StartFile(truncated.Path()));
    EXPECT_TRUE(WaitFor([&] { return m_manager->GetFilePlayStatus() == 1; }));
    _MIDIDeviceInfo src = FileEnd(truncated.Path());
    _MIDIDeviceInfo dst = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
    EXPECT_EQ(1, m_manager->StopStream(&src, &dst)); // nothing is playing any more
}

TEST_F(BadInput, HugeStartAndCountKeepTheListingInItsBuffer) {
    TempFile font(".sf2");
    std::vector<SoundFontPreset> presets;
    for (int i = 0; i < 60; ++i)
        presets.push_back({"Preset " + std::to_string(i), 0, i});
    ASSERT_TRUE(font.Write(BuildSoundFont(presets)));
    const int id = keyboard->LoadSoundFontFile(font.Path());
    ASSERT_GT(id, 0);
    EXPECT_EQ("", keyboard->GetSoundFontIntruments(id, UINT_MAX, 1));
    EXPECT_EQ("", keyboard->GetSoundFontIntruments(id, 60, UINT_MAX));
    EXPECT_EQ(45u * 21u, keyboard->GetSoundFontIntruments(id, 0, UINT_MAX).size());
    EXPECT_EQ(1u * 21u, keyboard->GetSoundFontIntruments(id, 59, UINT_MAX).size());
    EXPECT_EQ(1, keyboard->UnloadSoundFontFile(static_cast<unsigned int>(id)));
}

// A second unregistration or destruction changes nothing, and the keyboard's device can be
// created again.
TEST_F(BadInput, SecondUnregistrationsAndDestroysAreRefusedHarmlessly) {
    CountingHostCallback host;
    ASSERT_EQ(1, keyboard->RegisterCallback(&host));
    EXPECT_EQ(1, keyboard->UnregisterCallback(&host));
    EXPECT_EQ(1, keyboard->UnregisterCallback(&host));
    ASSERT_EQ(NUV_OK, m_manager->RegisterCallback(&host));
    EXPECT_EQ(NUV_OK, m_manager->UnregisterCallback(&host));
    EXPECT_EQ(NUV_ERR_GENERAL, m_manager->UnregisterCallback(&host));

    const int id = keyboard->GetID();
    EXPECT_EQ(NUV_OK, m_manager->DestroyDevice(id));
    EXPECT_EQ(NUV_ERR_GENERAL, m_manager->DestroyDevice(id));
    EXPECT_EQ(nullptr, m_manager->GetDevice(id));
    EXPECT_NE(nullptr, CreateKeyboard(0));
}

// A name with no terminator, right before memory that must not be read, is read up to the
// end of its field and no further.
TEST_F(BadInput, UnterminatedNamesAreReadWithinTheirField) {
    GuardedPage page;
    auto* bad = static_cast<_MIDIDeviceInfo*>(page.Last(sizeof(_MIDIDeviceInfo)));
    memset(bad, 0x01, sizeof *bad); // no zero byte in the whole record
    memset(bad->name, 'x', sizeof bad->name);
    _MIDIDeviceInfo good = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
    const std::string name(sizeof bad->name, 'x');
    EXPECT_EQ(0, m_manager->StartStream(bad, &good));
    EXPECT_EQ(NUV_ERR_INVALID_STREAM, m_manager->StopStream(bad, &good));
    EXPECT_EQ(2, log.CountContaining("Invalid source type[16843009] name [" + name + "]\n"));
    good.type = MIDI_DEVICE_TYPE_SOURCE;
    EXPECT_EQ(0, m_manager->StartStream(&good, bad));
    EXPECT_EQ(1, log.CountContaining("Invalid destination type[16843009] name [" + name + "]\n"));

    char* deviceName = static_cast<char*>(page.Last(256));
    memset(deviceName, 'x', 256);
    EXPECT_EQ(0, m_manager->IsConnected(deviceName));
    EXPECT_EQ(nullptr, m_manager->CreateDevice(deviceName));
}

// Through the shared library's three exported functions, as a host loads it.
TEST(BadInputEntry, CallsAfterDestroy) {
#ifdef NUV_CLI_LIBRARY
    void* library = dlopen(NUV_CLI_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, library) << dlerror();
    auto create = reinterpret_cast<int (*)()>(dlsym(library, "NuvMIDI_Create"));
    auto manager =
        reinterpret_cast<INuvMIDIDeviceManager* (*)()>(dlsym(library, "NuvMIDI_GetDeviceManager"));
    auto destroy = reinterpret_cast<void (*)()>(dlsym(library, "NuvMIDI_Destroy"));
    ASSERT_TRUE(create != nullptr && manager != nullptr && destroy != nullptr);
    EXPECT_EQ(nullptr, manager()); // not created yet
    ASSERT_EQ(1, create());
    destroy();
    EXPECT_EQ(nullptr, manager());
    destroy();
    ASSERT_EQ(1, create());
    EXPECT_NE(nullptr, manager());
    destroy();
    dlclose(library);
#endif
}

} // namespace
