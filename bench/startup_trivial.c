// The yardstick of startup_bench: the least that a dynamically linked program does.
int main(void)
{
    return 0;
}
