// List: an array of pointers to things it does not own. ListElement and ListCursor: an intrusive chain and its
// cursor; whoever owns a chain keeps both directions right. No locks: the owner of a shared list locks around it.
#pragma once

class ListIterator;

class List {
  public:
    List() = default;
    explicit List(const List* other);  // a shallow copy
    List(const List& other) : List(&other) {}
    List& operator=(const List&) = delete;
    virtual ~List();  // frees the array and none of the elements

    void* add(const void* item);          // appends; returns the item
    void insert(int i, const void* item);  // at or past the count it appends; a negative index does nothing
    void* remove(int i);                  // null if out of range
    // The index of the first item for which cmp(item, what) gives 0, or, with a null cmp, that is `what`; else -1.
    int find(const void* what, int (*cmp)(const void* item, const void* what)) const;
    int getCount() const { return count_; }
    void* get(int i) const { return items_[i]; }  // no bounds test
    void* peek() const;                           // the last item, null when empty
    void* pop();                                  // removes and returns the last item, null when empty
    void clear();                                 // count to 0; items are not freed, capacity stays
    ListIterator iterator() const;

  private:
    void enlarge();

    int count_ = 0;
    int capacity_ = 0;
    void** items_ = nullptr;
};

// A walk by index; items removed meanwhile shift under it.
class ListIterator {
  public:
    explicit ListIterator(const List* list) : list_(list) {}
    bool hasNext() const { return next_ < list_->getCount(); }
    void* next() { return list_->get(next_++); }

  private:
    const List* list_;
    int next_ = 0;
};

class ListElement {
  public:
    ListElement() = default;
    // A copy of an element stands in no chain.
    ListElement(const ListElement&) {}
    ListElement& operator=(const ListElement&) { return *this; }
    virtual ~ListElement() = default;

    ListElement* getNextElement() const { return next_; }
    void setNextElement(ListElement* next) { next_ = next; }
    ListElement* getPrevElement() const { return prev_; }
    void setPrevElement(ListElement* prev) { prev_ = prev; }

  private:
    ListElement* next_ = nullptr;
    ListElement* prev_ = nullptr;
};

class ListCursor {
  public:
    explicit ListCursor(ListElement* head) : head_(head), current_(head) {}
    ListCursor(const ListCursor&) = default;
    ListCursor& operator=(const ListCursor&) = default;
    virtual ~ListCursor() = default;

    void setToFirst() { current_ = head_; }
    void setToNext() {
        if (current_) current_ = current_->getNextElement();
    }
    bool hasMoreElements() const { return current_ != nullptr; }
    ListElement* getCurrentElement() const { return current_; }

  private:
    ListElement* head_;
    ListElement* current_;
};
