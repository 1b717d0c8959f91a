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
// Reading the states takes the sender's lock, and nobody reads faster.
constexpr gint64 kStatesPeriod_us = G_USEC_PER_SEC / 10;

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

// A row of the table. Whether it is on the schedule knows, which also switches it off: what it says
// of that is in `state`, not in `listed`.
struct Row {
    ListedMessage listed;
    int number;          // of the schedule
    MessageState state;  // as read last
    MessageState shown;
};
std::vector<Row> rows;

std::vector<std::pair<int, MessageState>> states;  // kept to use its memory again
gint64 states_read_us = 0;  // when all states were read; 0: to be read with the next refresh

bool is_unsaved = false;   // the list is in no file as it stands here
bool is_unread = false;    // the list that the settings hold is none, and was not replaced
bool has_refused = false;  // the window's bar says why an edit was refused

int row_cnt() {
    return static_cast<int>(rows.size());
}

Row& row_at(int row) {
    return rows[static_cast<std::size_t>(row)];
}

// ---- States --------------------------------------------------------------------------------

void read_state(Row* row) {
    row->state = message_state(row->number);
}

void read_states() {
    states_read_us = g_get_monotonic_time();
    messages_states(&states);
    for (Row& row : rows) {
        row.state =
            std::ranges::lower_bound(states, row.number, {}, &std::pair<int, MessageState>::first)
                ->second;
    }
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
    Row& it = row_at(row);
    if (it.state != it.shown && transmit_table_show_state(row, it.state)) {
        it.shown = it.state;
    }
}

void show_visible_states() {
    const auto [first, last] = transmit_table_visible();
    for (int row = first; row <= last && row < row_cnt(); ++row) {
        show_state(row);
    }
}

void show_summary() {
    TransmitCounts counts{.all = rows.size(), .on = {}, .fd_on = {}};
    for (const Row& row : rows) {
        const CAN_FRAME_INFO& frame = row.listed.frame;
        const auto channel = static_cast<std::size_t>(frame.CAN_port);
        counts.on[channel] += row.state.is_on ? 1 : 0;
        counts.fd_on[channel] += row.state.is_on && frame.fdf != TAVU_FDF_OFF ? 1 : 0;
    }
    show_label(page.state, transmit_state(counts));
    show_label(page.warning, transmit_warning(counts));
}

void refresh(bool is_shown) {
    if (!is_shown) {
        return;
    }
    if (g_get_monotonic_time() - states_read_us >= kStatesPeriod_us) {
        read_states();
        show_summary();
    }
    show_visible_states();  // also of rows that have just come into sight
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

bool insert_row(int before, const ListedMessage& listed) {
    if (rows.size() == kMessagesMost) {
        refuse("A list has at most " + std::to_string(kMessagesMost) + " messages.");
        return false;
    }
    Row row{.listed = listed, .number = 0, .state = {}, .shown = {}};
    row.number = message_add(message_of(listed));
    read_state(&row);
    row.shown.is_on = !row.state.is_on;  // nothing is shown yet
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
    states_read_us = 0;
    enable_buttons(transmit_table_selected());
}

// ---- Actions -------------------------------------------------------------------------------

void list_changed() {
    is_unsaved = true;
    states_read_us = 0;
}

// Of what the user sees: a message that has just reached its count is not switched on again.
void toggle(int row) {
    accept();
    message_switch(row_at(row).number, !row_at(row).state.is_on);
    read_state(&row_at(row));
    show_state(row);
    list_changed();
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
    list_changed();
}

void insert_and_select(int before, const ListedMessage& listed) {
    accept();
    if (insert_row(before, listed)) {
        list_changed();
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
    list_changed();
    if (!rows.empty()) {
        transmit_table_select(std::min(row, row_cnt() - 1));
    }
    enable_buttons(transmit_table_selected());
}

void move(int by) {
    const int row = transmit_table_selected();
    std::swap(row_at(row), row_at(row + by));
    transmit_table_swap(row, row + by);
    list_changed();
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
    read_states();
    for (Row& row : rows) {
        if (row.state.is_on != to_be_on) {
            message_switch(row.number, to_be_on);
            row.state.is_on = to_be_on;
            list_changed();
        }
    }
}

// The list with what is on now.
MessageList list_now() {
    MessageList list;
    list.reserve(rows.size());
    read_states();
    for (const Row& row : rows) {
        list.push_back(row.listed);
        list.back().is_on = row.state.is_on;
    }
    return list;
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
    states_read_us = 0;
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
