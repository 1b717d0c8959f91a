// gui/application.cpp - user interface: the shared state before anything has happened.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/application.h"

WINDOWS* windows = nullptr;
GtkBuilder* MW_builder = nullptr;
GtkBuilder* CS_builder = nullptr;
GtkBuilder* ED_builder = nullptr;

bool is_connect = false;
bool is_active = false;
bool is_recv_normal = true;
int com_port = -1;
