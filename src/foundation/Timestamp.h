// A wall-clock moment in seconds and microseconds.
#pragma once

class Timestamp {
  public:
    void now();  // gettimeofday, through the host's clock
    long long timeInMilliseconds() const;
    // Subtracts, borrowing a second where the microseconds go negative.
    Timestamp& operator-=(const Timestamp& other);
    // Milliseconds from this time until now.
    long long elapsedTimeMS() const;

    long long seconds = 0;
    long long microseconds = 0;
};
