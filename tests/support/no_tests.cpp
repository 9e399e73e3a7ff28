// no_tests.cpp - a program that only carries the precompiled header of the others

int main()
{
    return 0;
}
