// A chain of list elements that it owns, in the order of arrival.
#pragma once

#include "foundation/List.h"

template <class Element>
class ElementChain {
  public:
    ElementChain() = default;
    ElementChain(const ElementChain&) = delete;
    ElementChain& operator=(const ElementChain&) = delete;
    ~ElementChain() {
        while (head_) {
            Element* next = after(head_);
            delete head_;
            head_ = next;
        }
    }

    void append(Element* element) {  // takes over
        element->setPrevElement(tail_);
        element->setNextElement(nullptr);
        if (tail_) {
            tail_->setNextElement(element);
        } else {
            head_ = element;
        }
        tail_ = element;
    }
    Element* first() const { return head_; }  // null if it is empty
    static Element* after(const Element* element) { return static_cast<Element*>(element->getNextElement()); }

  private:
    Element* head_ = nullptr;
    Element* tail_ = nullptr;
};
