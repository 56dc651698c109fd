// SPDX-License-Identifier: BSD-3-Clause
// Asks whether the static object of early.cc was made; it ends the program when something did not hold.
int earlyTries();

int main()
{
    return earlyTries() == 1 ? 0 : 1;
}
