// Loads the service's libraries and ends: what the service's own start is measured by.
int main() {
    return 0;
}
