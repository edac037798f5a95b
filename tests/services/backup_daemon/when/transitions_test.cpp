// The table of transitions as the design page shows it, and where a new life finds tasks to stand.
#include "services/backup_daemon/when/transitions.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

using namespace services;
using Words = std::vector<std::string>;

namespace {

constexpr const char* STAGES[] = {"at rest", "waiting",  "interrupted", "starting",
                                  "running", "stopping", "restarting"};
constexpr const char* INPUTS[] = {"start", "start first", "due",   "stop",    "make way", "remove",
                                  "begin", "connected",   "ended", "cut off", "take over"};
constexpr const char* PLACES[] = {"", "place at the front", "place at the back", "place given up",
                                  "the task is deleted"};
constexpr const char* STAMPS[] = {"", "start time", "end time"};
constexpr const char* ACTS[] = {
    "", "begin a run", "take the run up", "cancel the run", "clean up", "cancel the run, clean up"};

template <typename Kind, std::size_t N>
std::string name(const char* const (&names)[N], Kind kind) {
    return names[static_cast<std::size_t>(kind)];
}

std::string joined(const Words& words) {
    std::string text;
    for (const std::string& word : words)
        if (!word.empty()) text += (text.empty() ? "" : ", ") + word;
    return text.empty() ? "–" : text;
}

template <typename Kind, std::size_t N>
std::string joined(const char* const (&names)[N], std::initializer_list<Kind> kinds) {
    Words words;
    for (const Kind kind : kinds) words.push_back(name(names, kind));
    return joined(words);
}

std::string status_text(int status) {
    if (status == Stored::UNCHANGED) return "";
    if (status == Stored::AS_THE_RUN_ENDED) return "status as the run ended";
    return "status \"" + std::string(table_text(strStatus_Arr, status)) + "\"";
}

std::string page_row(const Transition& row) {
    const std::string given =
        "| " + joined(STAGES, row.stages) + " | " + joined(INPUTS, row.inputs) + " | ";
    if (!row.step) return given + "stays | – | – |";
    const auto& [status, place, stamp] = row.step->stored;
    return given + name(STAGES, row.step->next) + " | " +
           joined({status_text(status), name(STAMPS, stamp), name(PLACES, place)}) + " | " +
           joined({name(ACTS, row.step->act)}) + " |";
}

/// The lines between the marks on the design page.
std::string table_of_the_page() {
    std::string table;
    std::ifstream page(DESIGN_PAGE);
    std::string line;
    while (std::getline(page, line) && line != "<!-- transitions -->") continue;
    while (std::getline(page, line) && line != "<!-- /transitions -->") table += line + '\n';
    return table;
}

TEST(Transitions, DesignPageShowsTheTable) {
    std::string table = "| stage | input | next stage | stored | done |\n|---|---|---|---|---|\n";
    for (const Transition& row : transitions()) table += page_row(row) + '\n';
    EXPECT_EQ(table_of_the_page(), table);
}

TEST(Transitions, EveryStageKnowsEveryInput) {
    int pairs = 0;
    for (const Transition& row : transitions())
        pairs += static_cast<int>(row.stages.size() * row.inputs.size());
    EXPECT_EQ(pairs, static_cast<int>(std::size(STAGES) * std::size(INPUTS)));
    EXPECT_EQ(step_of(Stage::restarting, Input::ended)->next, Stage::waiting);
    EXPECT_EQ(step_of(Stage::at_rest, Input::start)->next, Stage::waiting);
    EXPECT_FALSE(step_of(Stage::restarting, Input::begin));
}

TEST(Transitions, TimesAreStoredWithAStatus) {
    for (const Transition& row : transitions()) {
        if (!row.step || row.step->stored.stamp == Stamp::none) continue;
        EXPECT_NE(row.step->stored.status, Stored::UNCHANGED) << page_row(row);
    }
}

TEST(Transitions, RunsAreBegunAndCancelledOnce) {
    for (const Transition& row : transitions()) {
        if (!row.step) continue;
        for (const Stage stage : row.stages) {
            const bool begins = row.step->act == Act::begin_run || row.step->act == Act::resume_run;
            EXPECT_EQ(!has_run(stage) && has_run(row.step->next), begins) << page_row(row);
            const bool told = stage == Stage::starting || stage == Stage::running;
            const bool is_told =
                row.step->next == Stage::stopping || row.step->next == Stage::restarting;
            const bool cancels =
                row.step->act == Act::cancel_run || row.step->act == Act::cancel_and_clean_up;
            EXPECT_EQ(told && is_told, cancels) << page_row(row);
        }
    }
}

TEST(Transitions, WhatADeletedTaskHasLeftIsCleanedUp) {
    for (const Transition& row : transitions()) {
        if (!row.step) continue;
        const bool cleans =
            row.step->act == Act::clean_up || row.step->act == Act::cancel_and_clean_up;
        EXPECT_EQ(row.step->stored.place == Place::deleted, cleans) << page_row(row);
    }
}

TEST(Transitions, NewLifeFindsWhereATaskStood) {
    for (const bool has_place : {false, true})
        for (const int status : {TASK_PREPARE_START, TASK_RUNNING})
            EXPECT_EQ(stored_stage(status, has_place), Stage::running);
    for (const int status : {TASK_SUCCESS, TASK_NEW, TASK_CANCEL, TASK_FAILED}) {
        EXPECT_EQ(stored_stage(status, false), Stage::at_rest);
        EXPECT_EQ(stored_stage(status, true), Stage::waiting);
    }
    for (const int status : {TASK_WAIT, TASK_PREPARE_STOP}) {
        EXPECT_EQ(stored_stage(status, false), Stage::stopping);
        EXPECT_EQ(stored_stage(status, true), Stage::waiting);
    }
}

}  // namespace
