/* tools/display_answers.c - tool: ends with status 0 if a window can be opened here, else with 1.
 * SPDX-License-Identifier: MIT
 */
#include <gtk/gtk.h>

int main(int argc, char** argv) {
    return gtk_init_check(&argc, &argv) ? 0 : 1;
}
