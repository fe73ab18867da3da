// SPDX-License-Identifier: MIT
// The floor for starting a program: an empty one, linked as usual.
int main()
{
    return 0;
}
