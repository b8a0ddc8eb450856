// The model's document sessions: new, open, place, save, close and quit.
#include "FakeHost.h"
#include "app/model/CanvasZoom.h"
#include "app/model/FileNames.h"
#include "app/model/StudioModel.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/ImageExport.h"
#include "engine/formats/ImageImport.h"
#include "engine/formats/StudioFile.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace korv {
namespace {

using test::FakeHost;
using test::TempFolder;

void writeBytes(const std::filesystem::path& path, const std::vector<uint8_t>& bytes) {
    writeFileAtomically(path.string(), bytes);
}

std::vector<uint8_t> readBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

RGBABufferPtr solid(int64_t w, int64_t h) {
    auto buffer = std::make_shared<RGBABuffer>(w, h);
    buffer->fill(PaintColor(0.9, 0.2, 0.1, 1));
    return buffer;
}

// Makes the current document dirty with one committed step.
void edit(StudioModel& model) {
    model.placeBuffer(*solid(10, 10), "Dot", std::pair{0, 0}, *model.doc());
}

struct ModelTest : ::testing::Test {
    TempFolder temp;
    FakeHost host;
    StudioModel model{host};
};

TEST_F(ModelTest, NewDocumentClampsSidesAndBecomesCurrent) {
    model.newDocument(0, 40000, 72, PaintColor::white());
    ASSERT_NE(model.current(), nullptr);
    EXPECT_EQ(model.doc()->width(), 1);
    EXPECT_EQ(model.doc()->height(), 30000);
    EXPECT_FALSE(model.current()->isDirty());
    EXPECT_EQ(model.status, "Untitled \u2014 1 \u00D7 30000 px");
    model.newDocument(-5, 20, 72, std::nullopt, "Second");
    EXPECT_EQ(model.doc()->width(), 1);
    EXPECT_EQ(model.sessions.size(), 2u);
    EXPECT_EQ(model.current()->name, "Second");
}

TEST_F(ModelTest, OpeningNativeTwiceGivesOneSessionAndPicturesGiveOneEach) {
    StudioDocument doc(40, 30, 72, PaintColor::white());
    const auto native = temp / "Scene.korvstudio";
    writeBytes(native, StudioFile::encode(doc));
    const auto png = temp / "photo.png";
    writeBytes(png, *ImageExport::pngData(solid(20, 10), 72));

    model.open(native);
    const auto first = model.currentID;
    model.newDocument(5, 5, 72, std::nullopt);
    model.open(temp.path() / "." / "Scene.korvstudio");
    EXPECT_EQ(model.sessions.size(), 2u);
    EXPECT_EQ(model.currentID, first);
    EXPECT_EQ(model.current()->name, "Scene");
    EXPECT_EQ(model.current()->fileURL, native);

    model.open(png);
    model.open(png);
    EXPECT_EQ(model.sessions.size(), 4u);
    EXPECT_EQ(model.current()->name, "photo");
    EXPECT_FALSE(model.current()->fileURL);
    EXPECT_FALSE(model.current()->isDirty());
    EXPECT_EQ(host.recents.size(), 3u);
    EXPECT_FALSE(model.alert);
}

TEST_F(ModelTest, DamagedOrMissingFileGivesAlertAndNoSession) {
    StudioDocument doc(300, 300, 72, PaintColor::white());
    auto bytes = StudioFile::encode(doc);
    bytes.resize(bytes.size() / 2);
    const auto damaged = temp / "Broken.korvstudio";
    writeBytes(damaged, bytes);

    model.open(damaged);
    EXPECT_TRUE(model.sessions.empty());
    ASSERT_TRUE(model.alert);
    EXPECT_EQ(model.alert->title, "Can't open \u201CBroken.korvstudio\u201D");
    EXPECT_FALSE(model.alert->message.empty());

    model.open(temp / "nowhere.png");
    EXPECT_TRUE(model.sessions.empty());
    EXPECT_EQ(model.alert->title, "Can't open \u201Cnowhere.png\u201D");
    EXPECT_NE(model.alert->message.find("couldn't be read"), std::string::npos);
}

TEST_F(ModelTest, PlacingScalesDownToFitAndCentres) {
    model.newDocument(1000, 1000, 72, PaintColor::white());
    auto& doc = *model.doc();
    const int64_t before = doc.changeCount();
    model.placeBuffer(*solid(4000, 1000), "Wide", std::nullopt, doc);
    auto layer = model.activeLayer();
    ASSERT_TRUE(layer);
    EXPECT_EQ(layer->name, "Wide");
    EXPECT_EQ(layer->pixels->contentBounds(), (IRect{0, 375, 1000, 250}));
    EXPECT_EQ(doc.layers.size(), 2u);
    EXPECT_EQ(doc.layers.back().id, layer->id);
    EXPECT_EQ(doc.history().back().name, "Place Wide");
    EXPECT_EQ(doc.changeCount(), before + 1);

    // Smaller than the canvas: the size stays exact, centred; a given place is used as is.
    model.placeBuffer(*solid(101, 51), "Small", std::nullopt, doc);
    EXPECT_EQ(model.activeLayer()->pixels->contentBounds(), (IRect{449, 474, 101, 51}));
    model.placeBuffer(*solid(100, 100), "Edge", std::pair{-50, 950}, doc);
    EXPECT_EQ(model.activeLayer()->pixels->contentBounds(), (IRect{0, 950, 50, 50}));
    model.undo();
    EXPECT_EQ(model.activeLayer()->name, "Small");
}

TEST_F(ModelTest, PlacingAnUnreadableFileAlertsAndChangesNothing) {
    const auto text = temp / "notes.png";
    writeBytes(text, {'h', 'e', 'l', 'l', 'o'});
    model.importAsLayer(text); // no document yet: goes through open
    EXPECT_TRUE(model.sessions.empty());
    model.newDocument(100, 100, 72, PaintColor::white());
    const int64_t before = model.doc()->changeCount();
    model.importAsLayer(text);
    ASSERT_TRUE(model.alert);
    EXPECT_EQ(model.alert->title, "Can't place this picture");
    EXPECT_EQ(model.alert->message, "This computer could not read \u201Cnotes.png\u201D.");
    EXPECT_EQ(model.doc()->changeCount(), before);
}

TEST_F(ModelTest, SaveAskForAPlaceOnceThenWritesThere) {
    model.newDocument(64, 64, 72, PaintColor::white(), "Poster");
    edit(model);
    ASSERT_TRUE(model.current()->isDirty());
    model.save(false); // the panel is cancelled
    ASSERT_EQ(host.savePanels.size(), 1u);
    EXPECT_EQ(host.savePanels[0].suggestedName, "Poster.korvstudio");
    EXPECT_TRUE(model.current()->isDirty());

    const auto url = temp / "Final.korvstudio";
    host.saveAnswers.push_back(url);
    model.save(false);
    EXPECT_FALSE(model.current()->isDirty());
    EXPECT_EQ(model.current()->name, "Final");
    EXPECT_EQ(model.status, "Saved Final.korvstudio");
    auto reopened = StudioFile::decode(readBytes(url));
    EXPECT_EQ(reopened->fingerprint(), model.doc()->fingerprint());

    edit(model);
    model.save(false); // has a place now: no panel
    EXPECT_EQ(host.savePanels.size(), 2u);
    EXPECT_FALSE(model.current()->isDirty());
    ASSERT_FALSE(host.busyLabels.empty());
    EXPECT_EQ(host.busyLabels.back(), "Saving \u201CFinal.korvstudio\u201D\u2026");

    // The file holds the picture as it was when Save was chosen; a change
    // made while the save ran leaves the session dirty.
    const uint64_t saved = model.doc()->fingerprint();
    host.duringBusy = [&] { edit(model); };
    model.save(false);
    host.duringBusy = nullptr;
    EXPECT_TRUE(model.current()->isDirty());
    EXPECT_EQ(StudioFile::decode(readBytes(url))->fingerprint(), saved);
}

TEST_F(ModelTest, AFailedWriteLeavesTheOldFileAndTheSessionAsTheyWere) {
    model.newDocument(900, 700, 72, PaintColor::white());
    model.placeBuffer(*solid(900, 700), "Red", std::nullopt, *model.doc());
    const auto url = temp / "Kept.korvstudio";
    const std::vector<uint8_t> old{'o', 'l', 'd'};
    writeBytes(url, old);

    // Files may grow to 4 KB only: the encoded document stops midway.
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    auto* previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = saved;
    small.rlim_cur = 4096;
    setrlimit(RLIMIT_FSIZE, &small);
    const bool written = model.write(*model.current(), url);
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previous);

    EXPECT_FALSE(written);
    ASSERT_TRUE(model.alert);
    EXPECT_EQ(model.alert->title, "Couldn't save");
    EXPECT_EQ(readBytes(url), old);
    EXPECT_TRUE(model.current()->isDirty());
    EXPECT_FALSE(model.current()->fileURL);
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(temp.path()))
        files += entry.is_regular_file();
    EXPECT_EQ(files, 1u) << "no temporary file is left behind";
}

TEST_F(ModelTest, ExportWritesThePictureAndLeavesTheDocumentDirty) {
    model.newDocument(200, 100, 72, PaintColor::white(), "Card");
    edit(model);
    const auto url = temp / "card.png";
    host.saveAnswers.push_back(url);
    PhotoExportOptions options(PhotoExportFormat::png);
    options.scale = 0.5;
    model.exportPicture(options);
    EXPECT_EQ(host.savePanels.back().suggestedName, "Card.png");
    EXPECT_EQ(model.status, "Exported card.png (100 \u00D7 50 px)");
    const auto decoded = ImageImport::decode(readBytes(url));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->image->width(), 100);
    EXPECT_TRUE(model.current()->isDirty());
    EXPECT_FALSE(model.current()->fileURL);
}

TEST_F(ModelTest, ExportPSDWritesLayersAndReopensAsAnUnsavedDocument) {
    model.newDocument(64, 40, 72, PaintColor::white(), "Poster");
    model.placeBuffer(*solid(20, 10), "Red", std::nullopt, *model.doc());
    const int64_t change = model.doc()->changeCount();
    const auto url = temp / "poster.psd";

    host.saveAnswers.push_back(std::nullopt); // the panel is cancelled: nothing happens
    model.exportPSD();
    EXPECT_FALSE(std::filesystem::exists(url));

    host.saveAnswers.push_back(url);
    model.exportPSD();
    const SavePanelRequest& panel = host.savePanels.back();
    EXPECT_EQ(panel.suggestedName, "Poster.psd");
    EXPECT_EQ(panel.extension, "psd");
    EXPECT_EQ(panel.message,
              "Layered Photoshop PSD: layers, masks, groups, blend modes and opacity are kept.");
    EXPECT_FALSE(model.alert);
    EXPECT_EQ(model.status, "Exported poster.psd");
    EXPECT_EQ(model.doc()->changeCount(), change);
    EXPECT_TRUE(model.current()->isDirty());
    EXPECT_FALSE(model.current()->fileURL);

    // Opened again, it is named after the file and has no file of ours.
    model.open(url);
    ASSERT_EQ(model.sessions.size(), 2u);
    EXPECT_EQ(model.current()->name, "poster");
    EXPECT_FALSE(model.current()->fileURL);
    EXPECT_FALSE(model.current()->isDirty());
    ASSERT_EQ(model.doc()->layers.size(), 2u);
    EXPECT_EQ(model.doc()->layers[1].name, "Red");

    // A folder that can't be written to gives the export's own title.
    host.saveAnswers.push_back(temp / "missing" / "x.psd");
    model.exportPSD();
    ASSERT_TRUE(model.alert);
    EXPECT_EQ(model.alert->title, "Couldn't export the PSD");
}

TEST_F(ModelTest, DirtyCloseAsksAndACancelledSavePanelKeepsTheSession) {
    model.newDocument(32, 32, 72, PaintColor::white(), "Draft");
    edit(model);
    host.alertAnswers = {0}; // Save, then the panel is cancelled
    model.close();
    EXPECT_EQ(host.alertsShown.back(), "Save changes to \u201CDraft\u201D?");
    EXPECT_EQ(model.sessions.size(), 1u);

    host.alertAnswers = {1}; // Cancel
    model.close();
    EXPECT_EQ(model.sessions.size(), 1u);

    host.alertAnswers = {2}; // Don't Save
    model.close();
    EXPECT_TRUE(model.sessions.empty());
    EXPECT_FALSE(model.currentID);
}

TEST_F(ModelTest, QuitStopsAtTheFirstRefusal) {
    model.newDocument(32, 32, 72, PaintColor::white(), "One");
    edit(model);
    model.newDocument(32, 32, 72, PaintColor::white(), "Clean");
    model.newDocument(32, 32, 72, PaintColor::white(), "Two");
    edit(model);
    model.newDocument(32, 32, 72, PaintColor::white(), "Three");
    edit(model);

    host.alertAnswers = {0, 0}; // Save "One" (to a place), then Save "Two" and cancel its panel
    host.saveAnswers = {temp / "One.korvstudio", std::nullopt};
    EXPECT_FALSE(model.shouldQuit());
    ASSERT_EQ(model.sessions.size(), 3u);
    EXPECT_EQ(model.sessions[0]->name, "Clean");
    EXPECT_EQ(model.sessions[1]->name, "Two");
    EXPECT_EQ(model.current()->name, "Two");
    EXPECT_EQ(host.alertsShown.size(), 2u) << "\u201CThree\u201D is never asked about";

    host.alertAnswers = {2, 2};
    EXPECT_TRUE(model.shouldQuit());
    ASSERT_EQ(model.sessions.size(), 1u);
    EXPECT_EQ(model.sessions[0]->name, "Clean");
}

TEST_F(ModelTest, UndoAndRedoNameTheStepAndNotify) {
    model.newDocument(32, 32, 72, PaintColor::white());
    int notified = 0;
    const int token = model.observe([&] { ++notified; });
    edit(model);
    model.undo();
    EXPECT_EQ(model.status, "Undo Place Dot");
    EXPECT_EQ(model.doc()->layers.size(), 1u);
    EXPECT_TRUE(model.current()->isDirty()) << "an undo is a change too";
    model.redo();
    EXPECT_EQ(model.status, "Redo Place Dot");
    EXPECT_EQ(notified, 3);
    model.unobserve(token);
    model.undo();
    EXPECT_EQ(notified, 3);
}

TEST(ToolSettings, StoredEntriesOverlayDefaultsAndBadOnesAreIgnored) {
    FakeHost host;
    host.settings["korv.pe.brushes"] =
        R"({"brush": {"name": "Hard Round", "size": 12}, "eraser": 7, "pencil": {}})";
    host.settings["korv.pe.retouch"] = "not json";
    host.settings["korv.pe.tool"] = "lasso";
    StudioModel model(host);
    EXPECT_EQ(model.brushes["brush"]["size"], 12);
    EXPECT_EQ(model.brushes["eraser"], StudioModel::defaultBrush(Tool::eraser));
    EXPECT_FALSE(model.brushes.count("pencil"));
    EXPECT_EQ(model.retouch["spotHeal"]["size"], 30);
    EXPECT_EQ(model.retouch["dodge"]["strength"], 0.35);
    EXPECT_EQ(model.tool, Tool::lasso);

    // One malformed field keeps its default; the entry's other fields still count.
    host.settings["korv.pe.brushes"] = R"({"brush": {"name": 5, "size": 18, "flow": 0.4}})";
    StudioModel mixed(host);
    EXPECT_EQ(mixed.brushes["brush"]["name"], "Soft Round");
    EXPECT_EQ(mixed.brushes["brush"]["size"], 18);
    EXPECT_EQ(mixed.brushes["brush"]["flow"], 0.4);
    host.settings["korv.pe.brushes"] = R"({"brush": {"name": "Hard Round", "size": 12}})";

    host.settings["korv.pe.tool"] = "laser";
    StudioModel unknown(host);
    EXPECT_EQ(unknown.tool, Tool::move);

    model.setTool(Tool::brush);
    EXPECT_EQ(host.settings["korv.pe.tool"], "brush");
    EXPECT_EQ(model.status, tip(Tool::brush));
    StudioModel reloaded(host);
    EXPECT_EQ(reloaded.brushes["brush"]["name"], "Hard Round");

    StudioModel fresh(host, false);
    EXPECT_EQ(fresh.tool, Tool::move);
}

} // namespace
} // namespace korv

namespace korv {
namespace {

TEST(FileNames, AnySpellingOfTheFormatsExtensionIsKept) {
    EXPECT_EQ(withExtension("x.jpeg", "jpg"), "x.jpeg");
    EXPECT_EQ(withExtension("x.JPG", "jpg"), "x.JPG");
    EXPECT_EQ(withExtension("scan.tif", "tiff"), "scan.tif");
    EXPECT_EQ(withExtension("x.png", "jpg"), "x.png.jpg");
    EXPECT_EQ(withExtension("holiday.jpeg.korvstudio", "korvstudio"), "holiday.jpeg.korvstudio");
    EXPECT_EQ(withExtension("holiday.jpeg", "korvstudio"), "holiday.jpeg.korvstudio");
    EXPECT_EQ(withExtension(".jpg", "jpg"), ".jpg.jpg");
}

TEST(CanvasZoom, StepsSkipNearbyStepsAndStopAtTheEnds) {
    EXPECT_EQ(CanvasZoom::nextStep(1.0, true), 1.5);
    EXPECT_EQ(CanvasZoom::nextStep(1.0, false), 0.667);
    EXPECT_EQ(CanvasZoom::nextStep(1.005, false), 0.667);
    EXPECT_EQ(CanvasZoom::nextStep(0.995, true), 1.5);
    EXPECT_EQ(CanvasZoom::nextStep(32, true), 32);
    EXPECT_EQ(CanvasZoom::nextStep(0.05, false), 0.05);
    EXPECT_EQ(CanvasZoom::nextStep(100, false), 32);
    EXPECT_EQ(CanvasZoom::fit(1050, 550, 4000, 1000), 0.25);
    EXPECT_EQ(CanvasZoom::fit(10, 500, 100, 100), std::nullopt);
    EXPECT_EQ(CanvasZoom::fit(100050, 100050, 10, 10), 32);
}

} // namespace
} // namespace korv
