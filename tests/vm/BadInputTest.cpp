// What a host gets for bad input: a clear result and the documented log line, and nothing
// started, lost or leaked. The cases follow the table in docs/bad-input.md.
#include <sys/mman.h>
#include <unistd.h>

#include <functional>

#include "LogCapture.h"
#include "ManagerVmFixture.h"
#include "MidiFileWriter.h"
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
        ASSERT_NO_FATAL_FAILURE(ManagerVmTest::SetUp());
        keyboard = TakeKeyboard(0);
        ASSERT_NE(nullptr, keyboard);
    }
    int StartFile(const std::string& path) {
        _MIDIDeviceInfo src = FileEnd(path), dst = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
        return m_manager->StartStream(&src, &dst);
    }

    INuvMIDIDevice* keyboard = nullptr;
    LogCapture log;
};

// Refused stream ends, unplayable files and unloadable fonts: each call's result and the
// line that names the refusal; nothing is started by any.
TEST_F(BadInput, RefusedStreamsFilesAndFontsAnswerTheirResultAndLogTheirLine) {
    const int users = RendererUsers();
    const std::string name = End(keyboard, 0).name;
    const struct {
        int srcType, dstType, dstId, stopResult;
        std::string line;
    } streams[] = {
        {7, MIDI_DEVICE_TYPE_DESTINATION, -1, NUV_ERR_INVALID_STREAM,
         "Invalid source type[7] name [" + name + "]\n"},
        {0, 0, -1, NUV_ERR_INVALID_STREAM, "Invalid destination type[0] name [" + name + "]\n"},
        {0, MIDI_DEVICE_TYPE_FILE, -1, NUV_ERR_NOT_IMPLEMENTED,
         "[NuvMIDIDeviceManager::StartStream] Not implemented \n"},
        {0, MIDI_DEVICE_TYPE_DESTINATION, 9999, NUV_ERR_GENERAL, "Can't find Device(9999) \n"},
    };
    for (const auto& c : streams) {
        SCOPED_TRACE(c.line);
        log.Clear();
        _MIDIDeviceInfo src = End(keyboard, c.srcType), dst = End(keyboard, c.dstType);
        dst.id = c.dstId != -1 ? c.dstId : dst.id;
        EXPECT_EQ(0, m_manager->StartStream(&src, &dst));
        EXPECT_EQ(c.stopResult, m_manager->StopStream(&src, &dst));
        EXPECT_LE(1, log.CountContaining(c.line));
    }
    EXPECT_EQ(NUV_ERR_NOT_IMPLEMENTED, m_manager->PauseStream(nullptr, nullptr));

    TempFile empty(".mid"), text(".mid"), corrupt(".sf2");
    ASSERT_TRUE(text.Write({'R', 'I', 'F', 'F', ' ', 'n', 'o', ' ', 'M', 'I', 'D', 'I'}));
    ASSERT_TRUE(corrupt.Write({'R', 'I', 'F', 'F', 0x10, 0, 0, 0, 's', 'f', 'b', 'k', 'L', 'I'}));
    const std::string longest = "/tmp/" + std::string(250, 'm'); // 255 characters
    for (const std::string& path :
         {std::string("/tmp/nuv-missing.mid"), empty.Path(), text.Path(), longest}) {
        EXPECT_EQ(0, StartFile(path));
        EXPECT_EQ(1, log.CountContaining("[" + path + "] is not valid midi file\n")) << path;
    }
    _MIDIDeviceInfo unterminated = FileEnd(""); // read up to its 255th character
    memset(unterminated.name, 'n', sizeof unterminated.name);
    _MIDIDeviceInfo dst = End(keyboard, MIDI_DEVICE_TYPE_DESTINATION);
    EXPECT_EQ(0, m_manager->StartStream(&unterminated, &dst));
    EXPECT_EQ(1, log.CountContaining("[" + std::string(255, 'n') + "] is not valid midi file\n"));
    EXPECT_EQ(1, m_manager->GetFilePlayStatus()) << "no file plays";

    log.Clear();
    for (const std::string& path :
         {std::string("/tmp/nuv-missing.sf2"), corrupt.Path(), "/tmp/" + std::string(300, 'f')})
        EXPECT_EQ(-1, keyboard->LoadSoundFontFile(path)) << path;
    EXPECT_EQ(3, log.CountContaining("\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n"));
    EXPECT_EQ(0, keyboard->UnloadSoundFontFile(9999));
    EXPECT_EQ(1, log.CountContaining("\n[NuvMIDIConnector::UnloadSoundFontFile] Failed\n"));
    EXPECT_EQ("", keyboard->GetSoundFontIntruments(9999, 0, 10));
    EXPECT_EQ(1, log.CountContaining("[NuvMIDIConnector::GetSoundFontIntruments] invalid font"));
    EXPECT_EQ(users, RendererUsers()) << "nothing was started";
}

// Every pointer of the host API, null: the call's refusal and a line naming it, no crash.
TEST_F(BadInput, NullPointersAreRefusedWithALineNamingTheCall) {
    _MIDIDeviceInfo end = End(keyboard, MIDI_DEVICE_TYPE_SOURCE);
    const char* noCommands[] = {nullptr};
    const int users = RendererUsers();
    // The line: its whole text where that text is fixed, else the part that names the call.
    const struct {
        std::function<long()> run;
        long result;
        std::string line;
    } cases[] = {
        {[&] { return m_manager->IsConnected(nullptr); }, 0, "::IsConnected] null"},
        {[&] { return m_manager->CreateDevice(nullptr) != nullptr; }, 0, "::CreateDevice] null"},
        {[&] { return m_manager->RegisterCallback(nullptr); }, NUV_ERR_GENERAL,
         "[NuvMIDIDeviceManager::RegisterCallback]\n"},
        {[&] { return m_manager->UnregisterCallback(nullptr); }, NUV_ERR_GENERAL,
         "[NuvMIDIDeviceManager::UnregisterCallback]\n"},
        {[&] { return m_manager->StartStream(nullptr, &end); }, 0, "::StartStream] null"},
        {[&] { return m_manager->StartStream(&end, nullptr); }, 0, "::StartStream] null"},
        {[&] { return m_manager->StopStream(nullptr, &end); }, NUV_ERR_INVALID_STREAM,
         "::StopStream] null"},
        {[&] { return m_manager->StopStream(&end, nullptr); }, NUV_ERR_INVALID_STREAM,
         "::StopStream] null"},
        {[&] { return m_manager->PauseStream(nullptr, nullptr); }, NUV_ERR_NOT_IMPLEMENTED,
         "::PauseStream] null"},
        {[&] { return keyboard->RegisterCallback(nullptr); }, NUV_ERR_GENERAL,
         "::RegisterCallback] null"},
        {[&] { return keyboard->UnregisterCallback(nullptr); }, NUV_ERR_GENERAL,
         "::UnregisterCallback] null"},
        {[&] { return keyboard->GetInformation(MIDI_EVENT_CONTROL_CHANGE, nullptr); }, 0,
         "::GetInformation] null"},
        {[&] { return keyboard->LoadSoundFontFile(nullptr); }, -1,
         "\n[NuvMIDIConnector::LoadSoundFontFile] Failed\n"},
        {[] { return NuvMIDIEntry::m_ReadProcModules(nullptr); }, 0, "modules proc file"},
        {[] { return NuvMIDIEntry::m_ExecShell(nullptr); }, -1, "m_ExecShell(null)"},
        {[&] { return NuvMIDIEntry::m_InsertModules(nullptr, noCommands), 0L; }, 0,
         "no module name"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        log.Clear();
        EXPECT_EQ(c.result, c.run());
        EXPECT_EQ(1, log.CountContaining(c.line));
    }
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

} // namespace
