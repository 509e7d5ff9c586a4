/* An application's own memory helpers that happen to share names with the library's platform
   layer. They count their calls and hand out nothing, so the library would fail if it used them. */
int gAppHandleCalls = 0;

void *NewHandle(long size) {
    (void)size;
    ++gAppHandleCalls;
    return 0;
}

void DisposeHandle(void *handle) {
    (void)handle;
    ++gAppHandleCalls;
}
