// Placeholder host; replaced below.
int main() { return 0; }
