namespace Bench {
int run(int count, char** arguments);
}

int main(int count, char** arguments) { return Bench::run(count, arguments); }
