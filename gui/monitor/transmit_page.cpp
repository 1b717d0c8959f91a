// gui/monitor/transmit_page.cpp - user interface: transmit page of the monitor window: the list of
// periodic messages, its buttons, and what is said of it.
// Uses gui/monitor/transmit_table.h for the rows, service/message_schedule.h to send.
// Thread: main; the file dialogs run nested main loops.
// SPDX-License-Identifier: MIT
#include "gui/monitor/message_file.h"
#include "gui/monitor/page.h"
#include "gui/monitor/settings_file.h"
#include "gui/monitor/transmit_dialogs.h"
#include "gui/monitor/transmit_state.h"
#include "gui/monitor/transmit_table.h"
#include "gui/widgets.h"

#include "service/message_schedule.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* kGroup = "transmit";
constexpr const char* kListKey = "list";
constexpr const char* kUnsavedKey = "unsaved";
constexpr unsigned int kFirstId = 0x100;
constexpr int kFirstLength = 8;

struct TransmitWidgets {
    GtkWidget* tree;
    GtkWidget* state;
    GtkWidget* warning;
    GtkWidget* add_btn;
    GtkWidget* copy_btn;
    GtkWidget* remove_btn;
    GtkWidget* up_btn;
    GtkWidget* down_btn;
    GtkWidget* once_btn;
    GtkWidget* on_btn;
    GtkWidget* off_btn;
    GtkWidget* load_btn;
    GtkWidget* save_btn;
};
TransmitWidgets page{};

constexpr WidgetField kFields[] = {
    {"transmit_tree", &page.tree},         {"transmit_state", &page.state},
    {"transmit_warning", &page.warning},   {"transmit_add_btn", &page.add_btn},
    {"transmit_copy_btn", &page.copy_btn}, {"transmit_remove_btn", &page.remove_btn},
    {"transmit_up_btn", &page.up_btn},     {"transmit_down_btn", &page.down_btn},
    {"transmit_once_btn", &page.once_btn}, {"transmit_on_btn", &page.on_btn},
    {"transmit_off_btn", &page.off_btn},   {"transmit_load_btn", &page.load_btn},
    {"transmit_save_btn", &page.save_btn},
};
static_assert(fills_all_but<TransmitWidgets>(0, kFields));

// A row of the table. Whether it is on the schedule knows, which also switches it off.
struct Row {
    ListedMessage listed;
    int number;  // of the schedule
    MessageState shown;
};
std::vector<Row> rows;

bool is_unsaved = false;   // the list is in no file as it stands here
bool is_unread = false;    // the list that the settings hold is none, and was not replaced
bool has_refused = false;  // the window's bar says why an edit was refused

int row_cnt() {
    return static_cast<int>(rows.size());
}

Row& row_at(int row) {
    return rows[static_cast<std::size_t>(row)];
}

bool is_on(const Row& row) {
    return message_state(row.number).is_on;
}

// ---- Showing -------------------------------------------------------------------------------

void refuse(const std::string& reason) {
    monitor_say(reason);
    has_refused = true;
}

// What was said of an edit is over with the next one.
void accept() {
    if (std::exchange(has_refused, false)) {
        monitor_say("");
    }
}

void show_label(GtkWidget* label, const std::string& text) {
    if (text != gtk_label_get_text(GTK_LABEL(label))) {
        gtk_label_set_text(GTK_LABEL(label), text.c_str());
        gtk_widget_set_visible(label, text.empty() ? FALSE : TRUE);
    }
}

void show_state(int row) {
    const MessageState state = message_state(row_at(row).number);
    const MessageState& shown = row_at(row).shown;
    if (state.is_on != shown.is_on || state.sent != shown.sent ||
        state.overruns != shown.overruns || state.failures != shown.failures) {
        if (transmit_table_show_state(row, state)) {
            row_at(row).shown = state;
        }
    }
}

// The list with what is on now.
MessageList list_now() {
    MessageList list;
    for (const Row& row : rows) {
        list.push_back(row.listed);
        list.back().is_on = is_on(row);
    }
    return list;
}

void show_summary() {
    const MessageList list = list_now();
    show_label(page.state, transmit_state(list));
    show_label(page.warning, transmit_warning(list));
}

void refresh(bool is_shown) {
    if (!is_shown) {
        return;
    }
    const auto [first, last] = transmit_table_visible();
    for (int row = first; row <= last && row < row_cnt(); ++row) {
        show_state(row);
    }
    show_summary();
}

void enable_buttons(int selected) {
    const auto enable = [](GtkWidget* button, bool is_enabled) {
        gtk_widget_set_sensitive(button, is_enabled ? TRUE : FALSE);
    };
    for (GtkWidget* button : {page.copy_btn, page.remove_btn, page.once_btn}) {
        enable(button, selected >= 0);
    }
    enable(page.up_btn, selected > 0);
    enable(page.down_btn, selected >= 0 && selected < row_cnt() - 1);
    for (GtkWidget* button : {page.on_btn, page.off_btn, page.save_btn}) {
        enable(button, !rows.empty());
    }
}

// ---- Rows ----------------------------------------------------------------------------------

Message message_of(const ListedMessage& listed) {
    return {.frame = listed.frame,
            .period_us = listed.period_us,
            .count = listed.count,
            .is_on = listed.is_on};
}

// Result: whether it was not so before.
bool switch_row(int row, bool to_be_on) {
    if (is_on(row_at(row)) == to_be_on) {
        return false;
    }
    message_switch(row_at(row).number, to_be_on);
    show_state(row);
    return true;
}

bool insert_row(int before, const ListedMessage& listed) {
    if (rows.size() == kMessagesMost) {
        refuse("A list has at most " + std::to_string(kMessagesMost) + " messages.");
        return false;
    }
    Row row{.listed = listed, .number = 0, .shown = {}};
    row.number = message_add(message_of(listed));
    row.shown.is_on = !listed.is_on;  // nothing is shown yet
    rows.insert(rows.begin() + before, row);
    transmit_table_insert(before);
    transmit_table_show_message(before, listed);
    show_state(before);
    return true;
}

void remove_row(int row) {
    message_remove(row_at(row).number);
    rows.erase(rows.begin() + row);
    transmit_table_remove(row);
}

void remove_all() {
    while (!rows.empty()) {
        remove_row(row_cnt() - 1);
    }
}

void put_list(const MessageList& list) {
    remove_all();
    for (const ListedMessage& listed : list) {
        insert_row(row_cnt(), listed);
    }
    if (!rows.empty()) {
        transmit_table_select(0);
    }
    is_unsaved = false;
    enable_buttons(transmit_table_selected());
}

// ---- Actions -------------------------------------------------------------------------------

void toggle(int row) {
    accept();
    switch_row(row, !is_on(row_at(row)));
    is_unsaved = true;
}

void edit(int row, MessageField field, const char* text) {
    ListedMessage changed = row_at(row).listed;
    const std::string fault = field_edit(&changed, field, text);
    if (!fault.empty()) {
        refuse(fault);
        return;
    }
    accept();
    row_at(row).listed = changed;
    message_change(row_at(row).number, message_of(changed));
    transmit_table_show_message(row, changed);
    is_unsaved = true;
}

void insert_and_select(int before, const ListedMessage& listed) {
    accept();
    if (insert_row(before, listed)) {
        is_unsaved = true;
        transmit_table_select(before);
        enable_buttons(before);
    }
}

void add() {
    ListedMessage listed;
    listed.frame.id_type = TAVU_SID;
    listed.frame.id = kFirstId;
    listed.frame.dlc = kFirstLength;
    insert_and_select(row_cnt(), listed);
    gtk_widget_grab_focus(page.tree);
}

void copy() {
    const int row = transmit_table_selected();
    ListedMessage listed = row_at(row).listed;
    listed.is_on = false;
    insert_and_select(row + 1, listed);
}

void remove(int row) {
    accept();
    remove_row(row);
    is_unsaved = true;
    if (!rows.empty()) {
        transmit_table_select(std::min(row, row_cnt() - 1));
    }
    enable_buttons(transmit_table_selected());
}

void move(int by) {
    const int row = transmit_table_selected();
    std::swap(row_at(row), row_at(row + by));
    transmit_table_swap(row, row + by);
    is_unsaved = true;
    enable_buttons(row + by);
}

void send_once() {
    accept();
    if (message_send_once(row_at(transmit_table_selected()).number) != TAVU_SUCCESS) {
        refuse("Nothing is sent before a module is connected and CAN is started.");
    }
}

void switch_all(bool to_be_on) {
    accept();
    for (int row = 0; row < row_cnt(); ++row) {
        is_unsaved = switch_row(row, to_be_on) || is_unsaved;
    }
}

void load_list() {
    if (is_unsaved && !rows.empty() && !ask_to_replace()) {
        return;
    }
    accept();
    const GText path = ask_for_list(ListDialog::load);
    MessageList list;
    std::string fault;
    if (path == nullptr) {
        return;
    }
    if (messages_load(path.get(), &list, &fault)) {
        put_list(list);
        is_unread = false;
    } else {
        refuse(fault);
    }
}

void save_list() {
    accept();
    const GText path = ask_for_list(ListDialog::save);
    std::string fault;
    if (path == nullptr) {
        return;
    }
    if (messages_save(path.get(), list_now(), &fault)) {
        is_unsaved = false;
    } else {
        refuse(fault);
    }
}

// ---- The page ------------------------------------------------------------------------------

template <auto ACTION>
void connect(GtkWidget* button) {
    g_signal_connect(button, "clicked",
                     G_CALLBACK(+[](GtkWidget* /*button*/, gpointer /*user_data*/) { ACTION(); }),
                     nullptr);
}

void open(GtkBuilder* builder) {
    lookup_all(builder, kFields);
    rows.clear();
    is_unsaved = false;
    is_unread = false;
    has_refused = false;
    transmit_table_open(
        page.tree,
        {.toggle = toggle, .edit = edit, .add = add, .remove = remove, .selected = enable_buttons});
    connect<add>(page.add_btn);
    connect<copy>(page.copy_btn);
    connect<[] { remove(transmit_table_selected()); }>(page.remove_btn);
    connect<[] { move(-1); }>(page.up_btn);
    connect<[] { move(1); }>(page.down_btn);
    connect<send_once>(page.once_btn);
    connect<[] { switch_all(true); }>(page.on_btn);
    connect<[] { switch_all(false); }>(page.off_btn);
    connect<load_list>(page.load_btn);
    connect<save_list>(page.save_btn);
    enable_buttons(-1);
    show_summary();
}

// Nothing is sent any more; the table goes with the window.
void close() {
    for (const Row& row : rows) {
        message_remove(row.number);
    }
    rows.clear();
}

// The text stays in the settings, where the user can mend it, until another list stands here.
void tell_unread(const std::string& fault) {
    is_unread = true;
    monitor_say("The messages of the last time are not here: " + fault +
                " Correct the list in tavu-utility/monitor.ini, in the folder of your settings, "
                "while this window is closed; a new list here replaces it.");
}

// Messages begin switched off: nobody expects the window to send by being opened.
void load(GKeyFile* settings) {
    transmit_table_load(settings, kGroup);
    if (g_key_file_has_key(settings, kGroup, kListKey, nullptr) == FALSE) {
        return;
    }
    const GText text = setting_text(settings, kGroup, kListKey);
    MessageList list;
    std::string fault = "the list is no text.";
    if (text == nullptr || !messages_parse(text.get(), &list, &fault)) {
        tell_unread(fault);
        return;
    }
    for (ListedMessage& listed : list) {
        listed.is_on = false;
    }
    put_list(list);
    is_unsaved = setting_bool(settings, kGroup, kUnsavedKey, true);
}

void save(GKeyFile* settings) {
    transmit_table_save(settings, kGroup);
    if (is_unread && rows.empty()) {
        return;
    }
    g_key_file_set_string(settings, kGroup, kListKey, messages_write(list_now()).c_str());
    g_key_file_set_boolean(settings, kGroup, kUnsavedKey, is_unsaved ? TRUE : FALSE);
}

}  // namespace

const MonitorPage kTransmitPage{
    .id = "transmit",
    .title = "T_ransmit",
    .open = open,
    .close = close,
    .add = nullptr,
    .refresh = refresh,
    .clear = message_counts_reset,
    .filter_changed = nullptr,
    .load = load,
    .save = save,
};
