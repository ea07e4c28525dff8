// The program around the module: a line, so that all that is measured lies in one place.
namespace Bench {
int run(int count, char** arguments);
}

int main(int count, char** arguments) { return Bench::run(count, arguments); }
