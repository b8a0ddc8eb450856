#include "engine/document/StudioDocument.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <set>

using namespace korv;
using namespace std::chrono_literals;

namespace {

// A document whose clock only moves when the test says so.
struct Fixture {
    explicit Fixture(int64_t w = 512, int64_t h = 512) : doc(w, h, 72.0, PaintColor::white()) {
        doc.clock = [this] { return now; };
    }
    const Uuid& base() const { return doc.layers[0].id; }
    void paint(const Uuid& id, int64_t x, int64_t y, uint8_t v) {
        doc.update(id, true, [&](StudioLayer& l) { l.pixels->setPixel(x, y, {v, v, v, 255}); });
    }
    // Paints one pixel of the bottom layer and commits that as a step.
    void brush(const std::string& name, int64_t x, int64_t y, uint8_t v) {
        paint(base(), x, y, v);
        doc.commit(name);
    }
    void setOpacity(double o) {
        doc.update(base(), false, [&](StudioLayer& l) { l.opacity = o; });
    }

    Clock::time_point now{};
    StudioDocument doc;
};

// The distinct tiles of the history, counted from scratch.
int64_t recountBytes(const StudioDocument& doc) {
    std::set<const Tile*> tiles;
    std::function<void(const std::vector<StudioLayer>&)> walk = [&](const std::vector<StudioLayer>& layers) {
        for (const StudioLayer& l : layers) {
            for (const auto* set : {&l.pixels, &l.mask})
                if (*set)
                    for (const TilePtr& t : (*set)->tiles)
                        if (t) tiles.insert(t.get());
            walk(l.children);
        }
    };
    for (const auto& item : doc.history())
        walk(item.state.layers);
    return int64_t(tiles.size()) * kTileBytes;
}

std::vector<std::string> names(const StudioDocument& doc) {
    std::vector<std::string> out;
    for (const auto& item : doc.history())
        out.push_back(item.name);
    return out;
}

} // namespace

TEST(History, EveryDocumentStartsWithOneFrozenOpenItem) {
    StudioDocument painted(300, 300, 72.0, PaintColor::white());
    StudioDocument given(10, 10, 72.0, std::vector<StudioLayer>{});
    StudioDocument image(RGBABuffer(5, 5), 72.0, "Photo");
    for (StudioDocument* doc : {&painted, &given, &image}) {
        EXPECT_EQ(names(*doc), std::vector<std::string>{"Open"});
        EXPECT_EQ(doc->cursor(), 0);
        EXPECT_EQ(doc->changeCount(), 0);
        EXPECT_FALSE(doc->canUndo());
        EXPECT_FALSE(doc->canRedo());
        EXPECT_FALSE(doc->undoName().has_value());
        EXPECT_FALSE(doc->redoName().has_value());
    }
    // The open state shares the document's tiles, so they must be frozen already.
    EXPECT_TRUE(painted.layers[0].pixels->tile(3)->frozen());
}

TEST(History, ThreeUndosAndThreeRedosRetraceTheSteps) {
    Fixture f;
    const Uuid background = f.base();
    std::vector<uint64_t> prints{f.doc.fingerprint()};

    StudioLayer layer = StudioLayer::pixelLayer("Layer 1", f.doc.grid);
    const Uuid added = layer.id;
    f.doc.layers.push_back(std::move(layer));
    f.doc.activeID = added;
    f.doc.commit("New Layer");
    prints.push_back(f.doc.fingerprint());
    f.paint(added, 10, 10, 90);
    f.paint(added, 300, 300, 90);
    f.doc.commit("Brush");
    prints.push_back(f.doc.fingerprint());
    f.doc.update(background, true, [](StudioLayer& l) { l.pixels->fillAll(0, 0, 0, 255); });
    f.doc.commit("Invert");
    prints.push_back(f.doc.fingerprint());
    EXPECT_EQ(f.doc.undoName(), "Invert");

    for (int i = 2; i >= 0; --i) {
        f.doc.undo();
        EXPECT_EQ(f.doc.fingerprint(), prints[size_t(i)]) << i;
    }
    EXPECT_FALSE(f.doc.canUndo());
    EXPECT_EQ(f.doc.activeID, background);
    EXPECT_EQ(f.doc.redoName(), "New Layer");
    const int64_t count = f.doc.changeCount();
    f.doc.undo(); // nothing left to undo
    EXPECT_EQ(f.doc.changeCount(), count);

    for (int i = 1; i <= 3; ++i) {
        f.doc.redo();
        EXPECT_EQ(f.doc.fingerprint(), prints[size_t(i)]) << i;
    }
    EXPECT_FALSE(f.doc.canRedo());
    EXPECT_EQ(f.doc.activeID, added);
    // Three commits, three undos and three redos each count as a change.
    EXPECT_EQ(f.doc.changeCount(), 9);
}

TEST(History, JumpKeepsLaterStepsUntilTheNextCommit) {
    Fixture f;
    std::vector<uint64_t> prints{f.doc.fingerprint()};
    for (int i = 1; i <= 4; ++i) {
        f.brush("Step " + std::to_string(i), i, i, uint8_t(i));
        prints.push_back(f.doc.fingerprint());
    }
    f.doc.jump(2);
    EXPECT_EQ(f.doc.fingerprint(), prints[2]);
    EXPECT_EQ(f.doc.history().size(), 5u);
    f.doc.jump(4);
    EXPECT_EQ(f.doc.fingerprint(), prints[4]);

    const int64_t count = f.doc.changeCount();
    for (int64_t bad : {int64_t(-1), int64_t(5), int64_t(4)})
        f.doc.jump(bad);
    EXPECT_EQ(f.doc.changeCount(), count);

    f.doc.jump(2);
    f.brush("Other", 50, 50, 7);
    EXPECT_EQ(names(f.doc), (std::vector<std::string>{"Open", "Step 1", "Step 2", "Other"}));
    EXPECT_EQ(f.doc.cursor(), 3);
    EXPECT_FALSE(f.doc.canRedo());
}

TEST(History, SliderDragIsOneStepAndEveryBreakStartsAnother) {
    Fixture f;
    for (int i = 1; i <= 6; ++i) {
        f.setOpacity(1.0 - 0.1 * i);
        f.doc.commit("Opacity", "drag");
        f.now += 1500ms; // the window restarts at each merged change
    }
    EXPECT_EQ(names(f.doc), (std::vector<std::string>{"Open", "Opacity"}));
    EXPECT_EQ(f.doc.changeCount(), 6);
    f.doc.undo();
    EXPECT_DOUBLE_EQ(f.doc.layers[0].opacity, 1.0);
    f.doc.resetHistory();

    auto step = [&](const std::string& name, const std::optional<std::string>& key) {
        f.setOpacity(double(f.doc.changeCount() % 10) / 10);
        const size_t before = f.doc.history().size();
        f.doc.commit(name, key);
        return f.doc.history().size() > before; // true when a new step was made
    };
    // Never into "Open", even under the same name and key within the window.
    EXPECT_TRUE(step("Open", "k"));
    f.doc.resetHistory();
    EXPECT_TRUE(step("Open", "k"));

    EXPECT_TRUE(step("Opacity", "k"));
    f.now += 1999ms;
    EXPECT_FALSE(step("Opacity", "k"));
    f.now += 2000ms;
    EXPECT_TRUE(step("Opacity", "k")) << "a pause of 2 seconds";
    EXPECT_TRUE(step("Fill", "k")) << "another name";
    EXPECT_TRUE(step("Fill", "j")) << "another key";
    EXPECT_TRUE(step("Brush", std::nullopt));
    EXPECT_TRUE(step("Fill", "j")) << "a plain commit in between";

    f.doc.undo();
    f.doc.redo();
    EXPECT_TRUE(step("Fill", "j")) << "an undo and a redo";
    // Ending a live preview keeps the run going.
    f.setOpacity(0.123);
    f.doc.revertToLastCommit();
    EXPECT_FALSE(step("Fill", "j"));
}

TEST(History, StepLimitKeepsSixtyUndos) {
    Fixture f(256, 256);
    for (int i = 1; i <= 61; ++i)
        f.brush("Step " + std::to_string(i), i, 0, uint8_t(i));
    EXPECT_EQ(f.doc.history().size(), 61u);
    EXPECT_EQ(f.doc.cursor(), 60);
    EXPECT_EQ(f.doc.history().front().name, "Step 1");

    f.doc.maxUndoSteps = 0; // still one step to undo
    f.doc.commit("Last");
    EXPECT_EQ(names(f.doc), (std::vector<std::string>{"Step 61", "Last"}));
    EXPECT_EQ(f.doc.cursor(), 1);
}

TEST(History, ByteBudgetOnlyLooksAtLongHistoriesAndThenTrimsToTwo) {
    // One tile per step: each commit freezes the tile and the next paint copies it.
    Fixture f(256, 256);
    f.doc.maxUndoBytes = 3 * kTileBytes;
    for (int i = 1; i <= 9; ++i)
        f.brush("Step " + std::to_string(i), 0, 0, uint8_t(i));
    EXPECT_EQ(f.doc.history().size(), 10u);
    EXPECT_EQ(f.doc.historyBytes(), 10 * kTileBytes);

    f.brush("Step 10", 0, 0, 10);
    EXPECT_EQ(names(f.doc), (std::vector<std::string>{"Step 8", "Step 9", "Step 10"}));
    EXPECT_EQ(f.doc.cursor(), 2);

    f.doc.maxUndoSteps = 100;
    f.doc.maxUndoBytes = 1;
    for (int i = 11; i <= 17; ++i)
        f.brush("Step " + std::to_string(i), 0, 0, uint8_t(i));
    EXPECT_EQ(f.doc.history().size(), 10u) << "far over budget, but too short to be looked at";
    f.brush("Step 18", 0, 0, 18);
    EXPECT_EQ(names(f.doc), (std::vector<std::string>{"Step 17", "Step 18"}));
}

TEST(History, BytesCountEachSharedTileOnce) {
    Fixture f; // four white tiles
    EXPECT_EQ(f.doc.historyBytes(), 4 * kTileBytes);
    f.doc.commit("Nothing");
    EXPECT_EQ(f.doc.historyBytes(), 4 * kTileBytes);

    f.paint(f.base(), 0, 0, 9);
    StudioLayer copy = f.doc.layers[0];
    copy.id = Uuid::random();
    copy.mask = TileSet(f.doc.grid);
    copy.mask->setPixel(300, 300, {255, 255, 255, 255});
    f.doc.layers.push_back(StudioLayer::group("Group", {copy}));
    f.doc.commit("Duplicate");
    // One copied tile, one mask tile; the duplicate shares the rest.
    EXPECT_EQ(f.doc.historyBytes(), 6 * kTileBytes);

    // Snapshots are not counted.
    f.paint(f.base(), 0, 300, 1);
    const Uuid aside = f.doc.takeSnapshot("Aside");
    EXPECT_EQ(f.doc.historyBytes(), 6 * kTileBytes);

    // The running count stays equal to a full recount through every way the
    // history changes: steps, merges, dropped redo steps, trimming, restores.
    f.doc.maxUndoSteps = 4;
    for (int i = 0; i < 40; ++i) {
        f.paint(f.base(), (i * 97) % 512, (i * 53) % 512, uint8_t(i));
        if (i % 5 == 0) {
            // Layers that come and go shift every place in the tree.
            StudioLayer extra = f.doc.layers.front();
            extra.id = Uuid::random();
            f.doc.layers.insert(f.doc.layers.begin(), extra);
        }
        if (i % 8 == 0) f.doc.layers.pop_back();
        if (i % 4 < 2) // runs of two like changes, the second merging
            f.doc.commit("Drag", "k");
        else
            f.doc.commit("Brush");
        if (i % 7 == 0) f.doc.undo();
        if (i % 11 == 0) f.doc.jump(2);
        if (i == 20) f.doc.restoreSnapshot(aside);
        if (i == 30) f.doc.resetHistory();
        ASSERT_EQ(f.doc.historyBytes(), recountBytes(f.doc)) << i;
    }
}

TEST(History, PaintAfterCommitLeavesTheCommittedTileByteForByte) {
    Fixture f;
    f.brush("Brush", 5, 5, 40);
    const Tile* committed = f.doc.history()[1].state.layers[0].pixels->tile(0);
    std::vector<uint8_t> before(committed->pixels(), committed->pixels() + kTileBytes);

    f.paint(f.base(), 5, 5, 200);
    f.paint(f.base(), 6, 5, 200);
    EXPECT_NE(f.doc.layers[0].pixels->tile(0), committed);
    EXPECT_EQ(std::memcmp(committed->pixels(), before.data(), size_t(kTileBytes)), 0);
    f.doc.commit("Brush");

    f.doc.undo();
    const Tile* back = f.doc.layers[0].pixels->tile(0);
    EXPECT_EQ(std::memcmp(back->pixels(), before.data(), size_t(kTileBytes)), 0);
    EXPECT_EQ(f.doc.layers[0].pixels->pixel(5, 5), (Pixel4{40, 40, 40, 255}));
}

TEST(History, SnapshotOutlivesTrimmingAndItsRestoreIsUndoable) {
    Fixture f;
    f.doc.maxUndoSteps = 3;
    f.brush("First", 1, 1, 1);
    const Uuid id = f.doc.takeSnapshot("Early");
    const uint64_t early = f.doc.fingerprint();
    for (int i = 2; i <= 7; ++i)
        f.brush("Step " + std::to_string(i), i, i, uint8_t(i));
    EXPECT_EQ(f.doc.history().size(), 4u);
    ASSERT_EQ(f.doc.snapshots().size(), 1u);
    const uint64_t late = f.doc.fingerprint();

    EXPECT_TRUE(f.doc.restoreSnapshot(id));
    EXPECT_EQ(f.doc.fingerprint(), early);
    EXPECT_EQ(f.doc.undoName(), "Snapshot: Early");
    f.doc.undo();
    EXPECT_EQ(f.doc.fingerprint(), late);

    const int64_t count = f.doc.changeCount();
    EXPECT_FALSE(f.doc.restoreSnapshot(Uuid::random()));
    EXPECT_EQ(f.doc.changeCount(), count);
    f.doc.deleteSnapshot(id);
    EXPECT_TRUE(f.doc.snapshots().empty());
}

TEST(History, RestoresRepaintEverythingAndReportCanvasChanges) {
    Fixture f(300, 300);
    int gridChanges = 0;
    f.doc.onGridChange = [&] { ++gridChanges; };
    f.doc.grid = TileGrid(600, 100);
    f.doc.layers[0].pixels = TileSet(f.doc.grid);
    f.doc.commit("Canvas Size");
    f.brush("Brush", 1, 1, 1);
    EXPECT_EQ(gridChanges, 0);

    f.doc.undo(); // same canvas
    EXPECT_EQ(gridChanges, 0);
    EXPECT_EQ(f.doc.takeDirtyTiles(), (std::vector<int64_t>{0, 1, 2}));
    f.doc.undo();
    EXPECT_EQ(gridChanges, 1);
    EXPECT_EQ(f.doc.width(), 300);
    EXPECT_EQ(f.doc.takeDirtyTiles(), (std::vector<int64_t>{0, 1, 2, 3}));
    EXPECT_TRUE(f.doc.takeDirtyTiles().empty());

    f.doc.markDirty(IRect{0, 260, 10, 10});
    f.doc.markDirty(std::vector<int64_t>{3, 1});
    EXPECT_EQ(f.doc.takeDirtyTiles(), (std::vector<int64_t>{1, 2, 3}));

    // A revert drops uncommitted work without counting a change.
    const uint64_t committed = f.doc.fingerprint();
    const int64_t count = f.doc.changeCount();
    f.paint(f.base(), 7, 7, 7);
    f.doc.revertToLastCommit();
    EXPECT_EQ(f.doc.fingerprint(), committed);
    EXPECT_EQ(f.doc.changeCount(), count);
    EXPECT_EQ(gridChanges, 1);
}
