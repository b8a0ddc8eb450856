// Autosave timing, recovery copies, what is offered after a crash, and the trash.
#include "FakeHost.h"
#include "app/model/StudioModel.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/StudioFile.h"

#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace korv {
namespace {

using namespace std::chrono_literals;
using test::FakeHost;
using test::TempFolder;

void edit(StudioModel& model) {
    RGBABuffer dot(8, 8);
    dot.fill(PaintColor(0.1, 0.5, 0.9, 1));
    model.placeBuffer(dot, "Dot", std::pair{4, 4}, *model.doc());
}

bool copyExists(const Uuid& id) {
    Recovery::waitForWrites();
    return std::filesystem::exists(Recovery::fileURL(id)) && std::filesystem::exists(Recovery::infoURL(id));
}

void removeCopy(const Uuid& id) {
    std::filesystem::remove(Recovery::fileURL(id));
    std::filesystem::remove(Recovery::infoURL(id));
}

struct RecoveryTest : ::testing::Test {
    TempFolder temp;
    FakeHost host;
    StudioModel model{host};
};

TEST_F(RecoveryTest, CopiesFollowTheIntervalAndOnlyNewChanges) {
    model.startAutosave();
    ASSERT_EQ(host.timers, std::vector<double>{15});
    EXPECT_FALSE(model.sheet) << "nothing pending";
    model.newDocument(300, 300, 72, PaintColor::white(), "Scene");
    const Uuid id = model.current()->id;

    host.timerTick();
    EXPECT_FALSE(copyExists(id)) << "a clean document has nothing to copy";

    edit(model);
    host.timerTick();
    ASSERT_TRUE(copyExists(id));
    removeCopy(id);

    host.clock += 15s;
    host.timerTick();
    EXPECT_FALSE(copyExists(id)) << "no change since the copy";

    edit(model);
    host.clock += 60s;
    host.timerTick();
    EXPECT_FALSE(copyExists(id)) << "75 s after the last copy, below 90";
    host.clock += 15s;
    host.timerTick();
    EXPECT_TRUE(copyExists(id));

    edit(model);
    model.autosaveTick(true); // forced: the interval doesn't hold it back
    EXPECT_EQ(model.current()->autosavedChange, model.doc()->changeCount());

    model.prefs.autosaveSeconds = 5;
    edit(model);
    host.clock += 5s;
    host.timerTick();
    EXPECT_EQ(model.current()->autosavedChange, model.doc()->changeCount());
    EXPECT_TRUE(host.logLines.empty());
}

struct BusyCanvas : CanvasLink {
    bool busy = true;
    void showSession(DocSession&) override {}
    void clear() override {}
    void refresh() override {}
    bool isBusy() const override { return busy; }
};

TEST_F(RecoveryTest, NoCopyDuringAGesture) {
    BusyCanvas canvas;
    model.canvas = &canvas;
    model.newDocument(64, 64, 72, PaintColor::white());
    edit(model);
    model.autosaveTick(true);
    EXPECT_FALSE(copyExists(model.current()->id));
    canvas.busy = false;
    model.autosaveTick(false);
    EXPECT_TRUE(copyExists(model.current()->id));
    model.canvas = nullptr;
}

TEST_F(RecoveryTest, ACopyIsDescribedAndRestoresExactlyAsUnsaved) {
    model.newDocument(500, 300, 144, PaintColor::white(), "Beach");
    edit(model);
    edit(model);
    const Uuid id = model.current()->id;
    const uint64_t fingerprint = model.doc()->fingerprint();
    model.autosaveTick(true);
    Recovery::waitForWrites();

    std::ifstream in(Recovery::infoURL(id));
    const auto json = nlohmann::json::parse(in);
    EXPECT_EQ(json.at("name"), "Beach");
    EXPECT_FALSE(json.contains("originalPath"));
    EXPECT_EQ(json.at("date"), "2027-01-15T08:00:00Z");
    EXPECT_EQ(json.at("width"), 500);
    EXPECT_EQ(json.at("layers"), 3);

    EXPECT_TRUE(model.pendingRecovery().empty()) << "the session is still open";
    // A second model, as after a crash, sees the copy.
    FakeHost otherHost;
    StudioModel restarted(otherHost);
    restarted.startAutosave();
    ASSERT_TRUE(restarted.sheet);
    EXPECT_EQ(restarted.sheet->kind, Sheet::Kind::recovery);
    const auto items = restarted.pendingRecovery();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].id, id);
    EXPECT_EQ(items[0].info.height, 300);
    auto thumbnail = items[0].thumbnail();
    ASSERT_TRUE(thumbnail);
    EXPECT_EQ(thumbnail->width(), 320);

    ASSERT_TRUE(restarted.recover(items[0]));
    auto* session = restarted.current();
    EXPECT_EQ(session->id, id);
    EXPECT_EQ(session->name, "Beach (recovered)");
    EXPECT_TRUE(session->isDirty());
    EXPECT_FALSE(session->fileURL);
    EXPECT_EQ(session->doc->fingerprint(), fingerprint);
    EXPECT_EQ(session->doc->dpi, 144);

    // Saving the recovered document drops its copy.
    otherHost.saveAnswers.push_back(temp / "Beach.korvstudio");
    restarted.save(false);
    EXPECT_FALSE(std::filesystem::exists(Recovery::fileURL(id)));
    EXPECT_FALSE(std::filesystem::exists(Recovery::infoURL(id)));
}

TEST_F(RecoveryTest, ClosingDropsTheCopyAndPendingSkipsStrayFiles) {
    model.newDocument(64, 64, 72, PaintColor::white(), "Kept");
    edit(model);
    model.autosaveTick(true);
    model.newDocument(64, 64, 72, PaintColor::white(), "Dropped");
    edit(model);
    const Uuid dropped = model.current()->id;
    model.autosaveTick(true);
    ASSERT_TRUE(copyExists(dropped));
    host.alertAnswers = {2};
    model.close();
    EXPECT_FALSE(std::filesystem::exists(Recovery::fileURL(dropped)));

    const auto folder = AppFolders::autosave();
    std::ofstream(folder / "notes.txt") << "hello";
    std::ofstream(folder / "not-a-uuid.korvstudio") << "x";
    const Uuid orphan = Uuid::random();
    std::filesystem::copy_file(Recovery::fileURL(model.current()->id), Recovery::fileURL(orphan));
    const Uuid badInfo = Uuid::random();
    std::filesystem::copy_file(Recovery::fileURL(model.current()->id), Recovery::fileURL(badInfo));
    std::ofstream(Recovery::infoURL(badInfo)) << R"({"name": "x"})";

    EXPECT_TRUE(model.pendingRecovery().empty());
    EXPECT_EQ(Recovery::pending({}).size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(Recovery::fileURL(orphan))) << "left on disk";
}

TEST_F(RecoveryTest, DiscardToTheTrashKeepsTheFilesWithTheirOrigin) {
    model.newDocument(64, 64, 72, PaintColor::white());
    edit(model);
    const Uuid id = model.current()->id;
    model.autosaveTick(true);
    const auto original = Recovery::fileURL(id);
    Recovery::discard(id, true);
    EXPECT_FALSE(std::filesystem::exists(original));
    const auto trash = temp / "Trash";
    EXPECT_TRUE(std::filesystem::exists(trash / "files" / original.filename()));
    std::ifstream info(trash / "info" / (original.filename().string() + ".trashinfo"));
    std::string header, path;
    std::getline(info, header);
    std::getline(info, path);
    EXPECT_EQ(header, "[Trash Info]");
    EXPECT_EQ(path.substr(0, 5), "Path=");
    EXPECT_NE(path.find("KORV%20Lumenary/Autosave/" + original.filename().string()), std::string::npos);

    // A second copy of the same name lands beside the first.
    model.autosaveTick(true);
    edit(model);
    model.autosaveTick(true);
    Recovery::discard(id, true);
    EXPECT_TRUE(std::filesystem::exists(trash / "files" / (original.filename().string() + ".1")));
}

TEST_F(RecoveryTest, ACopyTheTrashRefusesStaysAndLeftoversGoAtStart) {
    model.newDocument(64, 64, 72, PaintColor::white());
    edit(model);
    const Uuid id = model.current()->id;
    model.autosaveTick(true);
    // A file where the Trash folder should be: nothing can be moved there.
    std::ofstream(temp / "Trash") << "not a folder";
    EXPECT_FALSE(Recovery::discard(id, true));
    EXPECT_TRUE(copyExists(id));
    EXPECT_EQ(model.pendingRecovery().size() + Recovery::pending({}).size(), 1u);

    const auto folder = AppFolders::autosave();
    const auto cut = folder / ("." + Recovery::fileURL(id).filename().string() + ".Ab12Cd");
    const auto cutInfo = folder / ("." + Recovery::infoURL(id).filename().string() + ".Ef34Gh");
    std::ofstream(cut) << "half a document";
    std::ofstream(cutInfo) << "{";
    std::ofstream(folder / "notes.txt") << "kept";
    StudioModel restarted(host);
    EXPECT_FALSE(std::filesystem::exists(cut));
    EXPECT_FALSE(std::filesystem::exists(cutInfo));
    EXPECT_TRUE(std::filesystem::exists(folder / "notes.txt"));
    EXPECT_TRUE(copyExists(id));
}

TEST_F(RecoveryTest, ANameThatIsNotUtf8StillGetsItsDescription) {
    model.newDocument(64, 64, 72, PaintColor::white(), "Holiday \xff\xfe 2026");
    edit(model);
    const Uuid id = model.current()->id;
    model.autosaveTick(true);
    ASSERT_TRUE(copyExists(id));
    const auto items = Recovery::pending({});
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].info.name.substr(0, 8), "Holiday ");
}

TEST(RecoveryDates, IsoDatesRoundTripAndRejectOtherForms) {
    const auto t = std::chrono::system_clock::from_time_t(1'800'000'000);
    EXPECT_EQ(isoDate(t), "2027-01-15T08:00:00Z");
    EXPECT_EQ(parseIsoDate("2027-01-15T08:00:00Z"), t);
    EXPECT_FALSE(parseIsoDate("2027-01-15T08:00:00"));
    EXPECT_FALSE(parseIsoDate("2027-01-15T08:00:00Zjunk"));
    EXPECT_FALSE(parseIsoDate("yesterday"));
}

TEST(PrefsStore, MissingKeysKeepDefaultsAndDamageGivesDefaults) {
    FakeHost host;
    EXPECT_EQ(Prefs::load(host), Prefs{});
    host.settings["korv.pe.prefs"] = R"({"autosaveSeconds": 30})";
    const Prefs loaded = Prefs::load(host);
    EXPECT_EQ(loaded.autosaveSeconds, 30);
    EXPECT_EQ(loaded.checkerSize, 10);
    host.settings["korv.pe.prefs"] = R"({"autosaveSeconds": "soon"})";
    EXPECT_EQ(Prefs::load(host), Prefs{});
    Prefs changed;
    changed.showRulersHint = false;
    changed.save(host);
    EXPECT_EQ(Prefs::load(host), changed);
    StudioModel model(host);
    EXPECT_FALSE(model.prefs.showRulersHint);
}

} // namespace
} // namespace korv
