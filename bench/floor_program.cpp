// SPDX-License-Identifier: MIT
// What any program costs that is started: an empty one, linked as usual.
int main()
{
    return 0;
}
